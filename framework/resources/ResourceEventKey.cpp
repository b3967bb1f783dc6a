#include "framework/resources/ResourceEventKey.h"

#include "framework/host/FrameworkTypes.h"

namespace Orvan::Framework {

std::string ResourceEventKey(std::string_view uri) {
    // Built in one string: keys are made for every event sent.
    std::string key;
    key.reserve(std::string_view(kJsonApiEvent).size() + uri.size() + 1);
    key += kJsonApiEvent;
    size_t elements = 1;
    size_t limit = 4;
    size_t start = 0;
    while (start <= uri.size() && elements < limit) {
        size_t end = uri.find('/', start);
        if (end == std::string_view::npos) {
            end = uri.size();
        }
        if (end > start) {
            const std::string_view piece = uri.substr(start, end - start);
            if (elements == 1 && piece == "qel-platform-config") {
                limit = 6;
            }
            key += '_';
            key += piece;
            ++elements;
        }
        start = end + 1;
    }
    return key;
}

bool ResourcePatternMatches(std::string_view pattern, std::string_view uri) {
    size_t p = 0;
    size_t u = 0;
    while (p < pattern.size() && u < uri.size()) {
        if (pattern[p] == '*') {
            // Not one branch: the second test moves along the uri first.
            if (uri[u] == '/') {  // NOLINT(bugprone-branch-clone)
                ++p;
            } else if (++u == uri.size()) {
                ++p;
            }
        } else {
            if (pattern[p] != uri[u]) {
                return false;
            }
            ++p;
            ++u;
        }
    }
    return p == pattern.size() && u == uri.size();
}

}  // namespace Orvan::Framework
