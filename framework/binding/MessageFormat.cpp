// Positional and named message formatting.
//
// A printf conversion is never applied to the argument as captured: the
// argument is first converted to exactly the type the conversion (with its
// length modifier) reads, so a mismatched template prints something sensible
// instead of reading the wrong type.
#include "framework/binding/MessageFormat.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <type_traits>

namespace Orvan::Framework {

namespace {

// The output buffer holds 4096 bytes including its terminator.
constexpr size_t kMaxOutput = 4095;
// Longest placeholder, from "%" through its conversion character.
constexpr size_t kMaxPlaceholder = 60;
// Widths and precisions beyond the output limit cannot change the kept text.
constexpr int kMaxWidth = 4096;

void AppendLimited(std::string& out, std::string_view text) {
    if (out.size() >= kMaxOutput) {
        return;
    }
    out.append(text.substr(0, kMaxOutput - out.size()));
}

#if defined(__GNUC__)
std::string PrintfText(const char* format, ...) __attribute__((format(printf, 1, 2)));
#endif

// snprintf into a std::string, cut at the output limit.
std::string PrintfText(const char* format, ...) {
    char buffer[kMaxOutput + 1];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (n < 0) {
        return {};
    }
    return std::string(buffer, std::min<size_t>(static_cast<size_t>(n), kMaxOutput));
}

// Builds a printf format from parts that were validated by the parser; the
// result is passed to vsnprintf with an argument of the matching type only.
std::string PrintfVText(const char* format, ...) {
    char buffer[kMaxOutput + 1];
    va_list args;
    va_start(args, format);
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    int n = std::vsnprintf(buffer, sizeof buffer, format, args);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
    va_end(args);
    if (n < 0) {
        return {};
    }
    return std::string(buffer, std::min<size_t>(static_cast<size_t>(n), kMaxOutput));
}

// Saturating conversion of a double to an integer type (NaN gives 0).
template <class I>
I ClampDouble(double v) {
    if (std::isnan(v)) {
        return 0;
    }
    if (v <= static_cast<double>(std::numeric_limits<I>::min())) {
        return std::numeric_limits<I>::min();
    }
    // The maximum of a 64-bit type is not representable; 2^63 / 2^64 compare >=.
    if (v >= static_cast<double>(std::numeric_limits<I>::max())) {
        return std::numeric_limits<I>::max();
    }
    return static_cast<I>(v);
}

int64_t ToSigned(const FormatArg& arg) {
    switch (arg.GetType()) {
        case FormatArg::Type::Signed:
        case FormatArg::Type::Char:
            return arg.Signed();
        case FormatArg::Type::Unsigned:
        case FormatArg::Type::Bool:
            return static_cast<int64_t>(arg.Unsigned());
        case FormatArg::Type::Double:
            return ClampDouble<int64_t>(arg.Double());
        case FormatArg::Type::Text: {
            std::string text(arg.Text());
            return static_cast<int64_t>(std::strtoll(text.c_str(), nullptr, 0));
        }
    }
    return 0;
}

uint64_t ToUnsigned(const FormatArg& arg) {
    switch (arg.GetType()) {
        case FormatArg::Type::Signed:
        case FormatArg::Type::Char:
            return static_cast<uint64_t>(arg.Signed());
        case FormatArg::Type::Unsigned:
        case FormatArg::Type::Bool:
            return arg.Unsigned();
        case FormatArg::Type::Double: {
            double v = arg.Double();
            return v < 0 ? static_cast<uint64_t>(ClampDouble<int64_t>(v))
                         : ClampDouble<uint64_t>(v);
        }
        case FormatArg::Type::Text: {
            std::string text(arg.Text());
            return static_cast<uint64_t>(std::strtoull(text.c_str(), nullptr, 0));
        }
    }
    return 0;
}

double ToDouble(const FormatArg& arg) {
    switch (arg.GetType()) {
        case FormatArg::Type::Signed:
        case FormatArg::Type::Char:
            return static_cast<double>(arg.Signed());
        case FormatArg::Type::Unsigned:
        case FormatArg::Type::Bool:
            return static_cast<double>(arg.Unsigned());
        case FormatArg::Type::Double:
            return arg.Double();
        case FormatArg::Type::Text: {
            std::string text(arg.Text());
            return std::strtod(text.c_str(), nullptr);
        }
    }
    return 0.0;
}

int ToChar(const FormatArg& arg) {
    if (arg.GetType() == FormatArg::Type::Text) {
        return arg.Text().empty() ? 0 : static_cast<unsigned char>(arg.Text().front());
    }
    return static_cast<unsigned char>(ToUnsigned(arg) & 0xFF);
}

enum class Length { None, hh, h, l, ll, j, z, t, L };

struct Conversion {
    std::string flags;
    int width = -1;
    int precision = -1;
    Length length = Length::None;
    char conv = 0;
};

// The printf format for one conversion, keeping only the flags and the
// precision that are defined for it, with the given length modifier text.
std::string BuildFormat(const Conversion& c, const char* length) {
    bool integer = std::string_view("diuoxX").find(c.conv) != std::string_view::npos;
    bool floating = std::string_view("fFeEgGaA").find(c.conv) != std::string_view::npos;
    bool alternate = floating || c.conv == 'o' || c.conv == 'x' || c.conv == 'X';
    std::string format = "%";
    for (char flag : c.flags) {
        bool keep = flag == '-' || (flag == '0' && (integer || floating)) ||
                    ((flag == '+' || flag == ' ') && (integer || floating)) ||
                    (flag == '#' && alternate);
        if (keep && format.find(flag) == std::string::npos) {
            format += flag;
        }
    }
    if (c.width >= 0) {
        format += std::to_string(c.width);
    }
    if (c.precision >= 0 && c.conv != 'c' && c.conv != 'p') {
        format += '.';
        format += std::to_string(c.precision);
    }
    format += length;
    format += c.conv;
    return format;
}

// Applies one parsed printf conversion to an argument converted to the type
// that the conversion and its length modifier read.
std::string ApplyConversion(const Conversion& c, const FormatArg& arg) {
    switch (c.conv) {
        case 'd':
        case 'i': {
            int64_t v = ToSigned(arg);
            switch (c.length) {
                case Length::hh:
                    return PrintfVText(BuildFormat(c, "hh").c_str(),
                                       static_cast<int>(static_cast<signed char>(v)));
                case Length::h:
                    return PrintfVText(BuildFormat(c, "h").c_str(),
                                       static_cast<int>(static_cast<short>(v)));
                case Length::None:
                    return PrintfVText(BuildFormat(c, "").c_str(), static_cast<int>(v));
                case Length::l:
                    return PrintfVText(BuildFormat(c, "l").c_str(), static_cast<long>(v));
                case Length::z:
                    return PrintfVText(BuildFormat(c, "z").c_str(),
                                       static_cast<std::make_signed_t<size_t>>(v));
                case Length::t:
                    return PrintfVText(BuildFormat(c, "t").c_str(), static_cast<ptrdiff_t>(v));
                case Length::j:
                    return PrintfVText(BuildFormat(c, "j").c_str(), static_cast<intmax_t>(v));
                case Length::ll:
                case Length::L:
                    return PrintfVText(BuildFormat(c, "ll").c_str(), static_cast<long long>(v));
            }
            return {};
        }
        case 'u':
        case 'o':
        case 'x':
        case 'X': {
            uint64_t v = ToUnsigned(arg);
            switch (c.length) {
                case Length::hh:
                    return PrintfVText(BuildFormat(c, "hh").c_str(),
                                       static_cast<unsigned>(static_cast<unsigned char>(v)));
                case Length::h:
                    return PrintfVText(BuildFormat(c, "h").c_str(),
                                       static_cast<unsigned>(static_cast<unsigned short>(v)));
                case Length::None:
                    return PrintfVText(BuildFormat(c, "").c_str(), static_cast<unsigned>(v));
                case Length::l:
                    return PrintfVText(BuildFormat(c, "l").c_str(), static_cast<unsigned long>(v));
                case Length::z:
                    return PrintfVText(BuildFormat(c, "z").c_str(), static_cast<size_t>(v));
                case Length::t:
                    return PrintfVText(BuildFormat(c, "t").c_str(),
                                       static_cast<std::make_unsigned_t<ptrdiff_t>>(v));
                case Length::j:
                    return PrintfVText(BuildFormat(c, "j").c_str(), static_cast<uintmax_t>(v));
                case Length::ll:
                case Length::L:
                    return PrintfVText(BuildFormat(c, "ll").c_str(),
                                       static_cast<unsigned long long>(v));
            }
            return {};
        }
        case 'p':
            return PrintfVText(BuildFormat(c, "").c_str(),
                               reinterpret_cast<void*>(static_cast<uintptr_t>(ToUnsigned(arg))));
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            // Only "L" changes what a floating conversion reads; the other
            // modifiers mean nothing there and are left out.
            if (c.length == Length::L) {
                return PrintfVText(BuildFormat(c, "L").c_str(),
                                   static_cast<long double>(ToDouble(arg)));
            }
            return PrintfVText(BuildFormat(c, "").c_str(), ToDouble(arg));
        case 'c':
            // Texts are narrow; a wide-character modifier is ignored.
            return PrintfVText(BuildFormat(c, "").c_str(), ToChar(arg));
        case 's': {
            std::string text = arg.GetType() == FormatArg::Type::Text ? std::string(arg.Text())
                                                                      : arg.DefaultText();
            return PrintfVText(BuildFormat(c, "").c_str(), text.c_str());
        }
        default:
            return {};
    }
}

bool IsConversion(char c) {
    switch (c) {
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
        case 'p':
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
        case 'c':
        case 's':
            return true;
        default:
            return false;
    }
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Reads a decimal number, saturating at `limit`.
int ReadNumber(std::string_view text, size_t& pos, int limit) {
    int value = 0;
    while (pos < text.size() && IsDigit(text[pos])) {
        int digit = text[pos] - '0';
        value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
        ++pos;
    }
    return value;
}

// Reads flags, width, precision, length modifier and the conversion character
// at pos; false when no conversion character ends them.
bool ParseConversion(std::string_view tmpl, size_t& pos, Conversion& c) {
    while (pos < tmpl.size() &&
           std::string_view("-+ #0").find(tmpl[pos]) != std::string_view::npos) {
        c.flags += tmpl[pos++];
    }
    if (pos < tmpl.size() && IsDigit(tmpl[pos])) {
        c.width = ReadNumber(tmpl, pos, kMaxWidth);
    }
    if (pos < tmpl.size() && tmpl[pos] == '.') {
        ++pos;
        c.precision = ReadNumber(tmpl, pos, kMaxWidth);
    }
    if (pos < tmpl.size()) {
        switch (tmpl[pos]) {
            case 'h':
                ++pos;
                c.length = Length::h;
                if (pos < tmpl.size() && tmpl[pos] == 'h') {
                    ++pos;
                    c.length = Length::hh;
                }
                break;
            case 'l':
                ++pos;
                c.length = Length::l;
                if (pos < tmpl.size() && tmpl[pos] == 'l') {
                    ++pos;
                    c.length = Length::ll;
                }
                break;
            case 'L':
                ++pos;
                c.length = Length::L;
                break;
            case 'j':
                ++pos;
                c.length = Length::j;
                break;
            case 'z':
                ++pos;
                c.length = Length::z;
                break;
            case 't':
                ++pos;
                c.length = Length::t;
                break;
            default:
                break;
        }
    }
    if (pos >= tmpl.size() || !IsConversion(tmpl[pos])) {
        return false;
    }
    c.conv = tmpl[pos++];
    return true;
}

}  // namespace

std::string FormatArg::DefaultText() const {
    switch (type_) {
        case Type::Text:
            return std::string(text_);
        case Type::Signed:
            return PrintfText("%lld", static_cast<long long>(signed_));
        case Type::Unsigned:
            return PrintfText("%llu", static_cast<unsigned long long>(unsigned_));
        case Type::Double:
            return PrintfText("%g", double_);
        case Type::Char:
            return std::string(1, static_cast<char>(signed_));
        case Type::Bool:
            return unsigned_ != 0 ? "true" : "false";
    }
    return {};
}

std::string FormatPositional(std::string_view tmpl, std::initializer_list<FormatArg> args) {
    std::string out;
    out.reserve(tmpl.size() + 16 * args.size());
    const FormatArg* argv = args.begin();
    const size_t argc = args.size();
    size_t next = 0;  // index of the argument a placeholder without number takes

    size_t pos = 0;
    while (pos < tmpl.size() && out.size() < kMaxOutput) {
        size_t percent = tmpl.find('%', pos);
        if (percent == std::string_view::npos) {
            AppendLimited(out, tmpl.substr(pos));
            break;
        }
        AppendLimited(out, tmpl.substr(pos, percent - pos));
        pos = percent + 1;
        if (pos < tmpl.size() && tmpl[pos] == '%') {
            AppendLimited(out, "%");
            ++pos;
            continue;
        }

        // Argument number: 1-based; none means the next argument.
        size_t index = next;
        const bool numbered = pos < tmpl.size() && IsDigit(tmpl[pos]);
        if (numbered) {
            int number = ReadNumber(tmpl, pos, INT_MAX);
            if (number == 0) {
                break;  // there is no argument 0
            }
            index = static_cast<size_t>(number) - 1;
        }
        if (pos - percent > kMaxPlaceholder || index >= argc) {
            break;
        }
        next = index + 1;
        const FormatArg& arg = argv[index];

        Conversion c;
        if (numbered) {
            if (pos >= tmpl.size() || tmpl[pos] != '$') {
                AppendLimited(out, arg.DefaultText());
                continue;
            }
            ++pos;
            if (!ParseConversion(tmpl, pos, c)) {
                break;  // a malformed conversion ends the formatting
            }
        } else {
            // A placeholder without a number may carry a printf conversion
            // directly ("%s", "%08x"); otherwise it prints the default text.
            size_t at = pos;
            if (!ParseConversion(tmpl, at, c)) {
                AppendLimited(out, arg.DefaultText());
                continue;
            }
            pos = at;
        }
        if (pos - percent > kMaxPlaceholder) {
            break;
        }
        AppendLimited(out, ApplyConversion(c, arg));
    }
    return out;
}

namespace {

bool EndsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool HasTypeSuffix(std::string_view name) {
    for (std::string_view suffix : {"_bool", "_int", "_long", "_float", "_str", "_time"}) {
        if (EndsWith(name, suffix)) {
            return true;
        }
    }
    return false;
}

// Stores one argument under its parameter name, keeping its type.
void StoreParameter(BindingProperty& parameters, const NamedArg& arg) {
    std::string name(arg.name);
    const FormatArg& value = arg.value;
    bool keepName = HasTypeSuffix(arg.name);
    switch (value.GetType()) {
        case FormatArg::Type::Bool:
            if (!keepName)
                name += "_bool";
            parameters.MutableField(name).SetBool(value.Unsigned() != 0);
            break;
        case FormatArg::Type::Signed:
            if (!keepName)
                name += "_int";
            parameters.MutableField(name).SetSigned(value.Signed());
            break;
        case FormatArg::Type::Unsigned:
            if (!keepName)
                name += "_int";
            parameters.MutableField(name).SetUnsigned(value.Unsigned());
            break;
        case FormatArg::Type::Double:
            if (!keepName)
                name += "_float";
            parameters.MutableField(name).SetFloat(value.Double());
            break;
        case FormatArg::Type::Char:
        case FormatArg::Type::Text:
            // A single character is kept as a one-character text.
            if (!keepName)
                name += "_str";
            parameters.MutableField(name).SetString(value.DefaultText());
            break;
    }
}

}  // namespace

Failure MakeFailure(uint32_t code, std::string_view tmpl, std::initializer_list<NamedArg> args) {
    Failure failure;
    failure.code = code;

    // "{name}" becomes the argument's text; unknown names and lone braces stay.
    std::string& message = failure.message;
    message.reserve(tmpl.size());
    size_t pos = 0;
    while (pos < tmpl.size()) {
        size_t open = tmpl.find('{', pos);
        if (open == std::string_view::npos) {
            message.append(tmpl.substr(pos));
            break;
        }
        message.append(tmpl.substr(pos, open - pos));
        size_t close = tmpl.find('}', open + 1);
        if (close == std::string_view::npos) {
            message.append(tmpl.substr(open));
            break;
        }
        std::string_view name = tmpl.substr(open + 1, close - open - 1);
        const NamedArg* found = nullptr;
        for (const NamedArg& arg : args) {
            if (arg.name == name) {
                found = &arg;
                break;
            }
        }
        if (found == nullptr) {
            // Not a placeholder; keep the brace and look again after it.
            message += '{';
            pos = open + 1;
            continue;
        }
        message.append(found->value.DefaultText());
        pos = close + 1;
    }

    failure.parameters.SetEmptyStructure();
    for (const NamedArg& arg : args) {
        StoreParameter(failure.parameters, arg);
    }
    if (code != 0) {
        failure.parameters.MutableField("errorCode_int").SetUnsigned(code);
    }
    return failure;
}

}  // namespace Orvan::Framework
