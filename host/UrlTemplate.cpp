#include "host/UrlTemplate.h"

#include <limits>
#include <vector>

namespace Orvan::Host {

namespace {

std::vector<std::string_view> Segments(std::string_view path) {
    std::vector<std::string_view> segments;
    size_t start = 0;
    while (start <= path.size()) {
        const size_t slash = path.find('/', start);
        const size_t end = slash == std::string_view::npos ? path.size() : slash;
        segments.push_back(path.substr(start, end - start));
        if (slash == std::string_view::npos) {
            break;
        }
        start = slash + 1;
    }
    return segments;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

}  // namespace

std::string PercentDecode(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            const int high = HexDigit(text[i + 1]);
            const int low = HexDigit(text[i + 2]);
            if (high >= 0 && low >= 0) {
                decoded += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        decoded += text[i] == '+' ? ' ' : text[i];
    }
    return decoded;
}

std::string_view UriPath(std::string_view uri) {
    return uri.substr(0, uri.find('?'));
}

std::optional<PathParameters> MatchUrlTemplate(std::string_view templateText,
                                               std::string_view path) {
    const std::vector<std::string_view> pattern = Segments(templateText);
    const std::vector<std::string_view> actual = Segments(path);
    PathParameters parameters;
    size_t i = 0;
    for (; i < pattern.size(); ++i) {
        const std::string_view piece = pattern[i];
        const bool parameter = piece.size() >= 2 && piece.front() == '{' && piece.back() == '}';
        if (parameter && piece.size() > 2 && piece[1] == '+') {
            // The rest of the path, slashes included.
            if (i >= actual.size()) {
                return std::nullopt;
            }
            const size_t offset = static_cast<size_t>(actual[i].data() - path.data());
            parameters[std::string(piece.substr(2, piece.size() - 3))] =
                PercentDecode(path.substr(offset));
            return parameters;
        }
        if (i >= actual.size()) {
            return std::nullopt;
        }
        if (parameter) {
            parameters[std::string(piece.substr(1, piece.size() - 2))] = PercentDecode(actual[i]);
        } else if (piece != actual[i]) {
            return std::nullopt;
        }
    }
    if (i != actual.size()) {
        return std::nullopt;
    }
    return parameters;
}

size_t ParameterWeight(const PathParameters& parameters) {
    size_t weight = 0;
    for (const auto& [name, value] : parameters) {
        weight += value.size() + 1;
    }
    return weight;
}

const EndpointRecord* PickEndpoint(const std::vector<const EndpointRecord*>& endpoints,
                                   uint32_t method, std::string_view path,
                                   std::string_view functionName) {
    const EndpointRecord* best = nullptr;
    size_t bestWeight = std::numeric_limits<size_t>::max();
    for (const EndpointRecord* endpoint : endpoints) {
        if (endpoint->method != method || endpoint->dispatch == nullptr) {
            continue;
        }
        if (method == kHostMethodDirectCall) {
            if (endpoint->function.name != nullptr && functionName == endpoint->function.name) {
                return endpoint;
            }
            continue;
        }
        if (endpoint->urlTemplate == nullptr) {
            continue;
        }
        std::optional<PathParameters> match = MatchUrlTemplate(endpoint->urlTemplate, path);
        if (match && ParameterWeight(*match) < bestWeight) {
            best = endpoint;
            bestWeight = ParameterWeight(*match);
        }
    }
    return best;
}

}  // namespace Orvan::Host
