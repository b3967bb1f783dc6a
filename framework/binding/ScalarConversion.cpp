#include "framework/binding/ScalarConversion.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "framework/binding/MessageFormat.h"

namespace Orvan::Framework {

namespace {

// The C parsers need a terminated text; received texts are views. Short
// texts (every sane number) stay on the stack.
class TerminatedText {
public:
    explicit TerminatedText(std::string_view text) {
        if (text.size() < sizeof(small_)) {
            std::memcpy(small_, text.data(), text.size());
            small_[text.size()] = '\0';
            data_ = small_;
        } else {
            large_.assign(text);
            data_ = large_.c_str();
        }
    }
    const char* Data() const { return data_; }

private:
    char small_[64];
    std::string large_;
    const char* data_ = nullptr;
};

std::string OutOfRangeMessage(std::string_view text, std::string_view field,
                              std::string_view typeName) {
    return Format("Value %1 for '%2' of type %3 is out of range", text, field, typeName);
}

}  // namespace

std::string IncorrectFormatMessage(std::string_view text, std::string_view field,
                                   std::string_view typeName) {
    return Format("Value %1 for '%2' of type %3 is in an incorrect format", text, field, typeName);
}

Maybe<int64_t> ParseSignedText(std::string_view text, std::string_view field,
                               std::string_view typeName, int64_t min, int64_t max) {
    TerminatedText terminated(text);
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(terminated.Data(), &end, 0);
    const int error = errno;
    // A NUL inside the text stops the parser early, like any other stray byte.
    if (end != terminated.Data() + text.size()) {
        return Failure(IncorrectFormatMessage(text, field, typeName));
    }
    if (error == ERANGE || value < min || value > max) {
        return Failure(OutOfRangeMessage(text, field, typeName));
    }
    return static_cast<int64_t>(value);
}

Maybe<uint64_t> ParseUnsignedText(std::string_view text, std::string_view field,
                                  std::string_view typeName, uint64_t max) {
    TerminatedText terminated(text);
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(terminated.Data(), &end, 0);
    const int error = errno;
    if (end != terminated.Data() + text.size()) {
        return Failure(IncorrectFormatMessage(text, field, typeName));
    }
    // strtoull negates "-1" into the top of the range; a sign is never valid.
    if (error == ERANGE || value > max || (!text.empty() && text.front() == '-')) {
        return Failure(OutOfRangeMessage(text, field, typeName));
    }
    return static_cast<uint64_t>(value);
}

Maybe<double> ParseDoubleText(std::string_view text, std::string_view field,
                              std::string_view typeName, double limit) {
    TerminatedText terminated(text);
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(terminated.Data(), &end);
    const int error = errno;
    if (end != terminated.Data() + text.size()) {
        return Failure(IncorrectFormatMessage(text, field, typeName));
    }
    // Written so that NaN counts as outside the limits.
    if (error == ERANGE || !(value >= -limit && value <= limit)) {
        return Failure(OutOfRangeMessage(text, field, typeName));
    }
    return value;
}

}  // namespace Orvan::Framework
