// Message formatting shared by log lines, conversion messages and failures.
//
// Positional templates: "%1", "%2" pick arguments by number and print them
// with their type's default conversion (texts as "%s", signed as "%d",
// unsigned as "%u", 64-bit where the value is, characters as "%c", doubles as
// "%g"); "%2$08x" applies a printf conversion to argument 2; "%%" is "%"; a
// placeholder without a number takes the next argument. Output is limited to
// 4096 bytes; a placeholder longer than 60 characters, or a number beyond the
// arguments, ends the formatting there.
//
// Named templates ("{method}") build a Failure: every placeholder is replaced by
// the text of its argument and every argument is kept in the failure's
// parameters under its name plus a type suffix.
//
// Pure functions; any thread.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "framework/binding/Failure.h"

namespace Orvan::Framework {

// One argument of a template, captured by type.
class FormatArg {
public:
    enum class Type : uint8_t { Text, Signed, Unsigned, Double, Char, Bool };

    FormatArg(std::string_view text)
        : type_(Type::Text), text_(text) {}  // NOLINT: implicit by design
    FormatArg(const char* text) : type_(Type::Text), text_(text ? text : "") {}  // NOLINT
    FormatArg(const std::string& text) : type_(Type::Text), text_(text) {}       // NOLINT
    FormatArg(char c) : type_(Type::Char), signed_(c) {}                         // NOLINT
    FormatArg(bool b) : type_(Type::Bool), unsigned_(b ? 1 : 0) {}               // NOLINT
    FormatArg(signed char v) : type_(Type::Signed), signed_(v) {}                // NOLINT
    FormatArg(short v) : type_(Type::Signed), signed_(v) {}                      // NOLINT
    FormatArg(int v) : type_(Type::Signed), signed_(v) {}                        // NOLINT
    FormatArg(long v) : type_(Type::Signed), signed_(v) {}                       // NOLINT
    FormatArg(long long v) : type_(Type::Signed), signed_(v) {}                  // NOLINT
    FormatArg(unsigned char v) : type_(Type::Unsigned), unsigned_(v) {}          // NOLINT
    FormatArg(unsigned short v) : type_(Type::Unsigned), unsigned_(v) {}         // NOLINT
    FormatArg(unsigned int v) : type_(Type::Unsigned), unsigned_(v) {}           // NOLINT
    FormatArg(unsigned long v) : type_(Type::Unsigned), unsigned_(v) {}          // NOLINT
    FormatArg(unsigned long long v) : type_(Type::Unsigned), unsigned_(v) {}     // NOLINT
    FormatArg(float v) : type_(Type::Double), double_(v) {}                      // NOLINT
    FormatArg(double v) : type_(Type::Double), double_(v) {}                     // NOLINT

    Type GetType() const { return type_; }
    std::string_view Text() const { return text_; }
    int64_t Signed() const { return signed_; }
    uint64_t Unsigned() const { return unsigned_; }
    double Double() const { return double_; }

    // The argument's default text ("%s", "%lld", "%llu", "%g", "%c"; bools as "true"/"false").
    std::string DefaultText() const;

private:
    Type type_;
    std::string_view text_;
    int64_t signed_ = 0;
    uint64_t unsigned_ = 0;
    double double_ = 0.0;
};

// Positional formatting of a template with typed arguments.
std::string FormatPositional(std::string_view tmpl, std::initializer_list<FormatArg> args);

template <class... Args>
std::string Format(std::string_view tmpl, const Args&... args) {
    return FormatPositional(tmpl, {FormatArg(args)...});
}

// One named argument of a failure template.
struct NamedArg {
    std::string_view name;
    FormatArg value;
};

// Builds a Failure from a named template: message with "{name}" placeholders
// replaced; parameters holding each argument under name + "_bool"/"_int"/
// "_float"/"_str" (unless the name already ends in one of "_bool", "_int",
// "_long", "_float", "_str", "_time"); a non-zero code also as "errorCode_int".
Failure MakeFailure(uint32_t code, std::string_view tmpl, std::initializer_list<NamedArg> args);

}  // namespace Orvan::Framework
