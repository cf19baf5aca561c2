#pragma once
// Error types of the library. Each `Error.*` type carries its fixed sentence;
// the built-in kinds (type, value, not-implemented, file-not-found) are C++
// types of their own so that the Python face maps each to Python's own type.
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zerko {

/// Base of every error raised by the library.
class Exception : public std::runtime_error {
public:
    explicit Exception(const std::string& text) : std::runtime_error(text) {}
    /// The class name under which the error is reported ("{}: {}" log lines).
    virtual const char* class_name() const noexcept { return "Exception"; }
};

/// A value of the wrong type (Python: TypeError).
class TypeError : public Exception {
public:
    using Exception::Exception;
    const char* class_name() const noexcept override { return "TypeError"; }
};

/// A value of the right type but not allowed (Python: ValueError).
class ValueError : public Exception {
public:
    using Exception::Exception;
    const char* class_name() const noexcept override { return "ValueError"; }
};

/// An abstract operation that the host did not provide (Python: NotImplementedError).
class NotImplementedError : public Exception {
public:
    using Exception::Exception;
    explicit NotImplementedError() : Exception("") {}
    const char* class_name() const noexcept override { return "NotImplementedError"; }
};

/// A file or directory that should exist does not (Python: FileNotFoundError,
/// or the OSError of the same errno).
class FileNotFoundError : public Exception {
public:
    /// `error_number` is the errno of the failed call; the text reads as Python's.
    FileNotFoundError(int error_number, std::string path);
    int error_number() const noexcept { return errno_; }
    const std::string& strerror() const noexcept { return strerror_; }
    const std::string& path() const noexcept { return path_; }
    const char* class_name() const noexcept override { return "FileNotFoundError"; }

private:
    int errno_;
    std::string strerror_;
    std::string path_;
};

/// A regular expression that cannot be compiled, or whose match ran over its
/// work bound. It is a ValueError, so that callers treat it as bad input; the
/// Python face raises it as a subclass of both `re.error` and ValueError, so
/// its text reads as Python's own: "<message> at position <n>".
class RegexError : public ValueError {
public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);
    /// A fault that belongs to no place in a pattern (a match over its bound).
    explicit RegexError(const std::string& message) : ValueError(message), message_(message) {}
    /// A fault of `pattern` at character `position` (npos: no known place).
    /// A pattern of several lines adds " (line l, column c)" as Python does.
    RegexError(std::string message, std::string pattern, std::size_t position);

    /// The reason without the position ("missing ), unterminated subpattern").
    const std::string& message() const noexcept { return message_; }
    /// The pattern at fault; empty when `has_pattern` is false.
    const std::string& pattern() const noexcept { return pattern_; }
    bool has_pattern() const noexcept { return has_pattern_; }
    /// The position in characters, or npos.
    std::size_t position() const noexcept { return position_; }
    const char* class_name() const noexcept override { return "RegexError"; }

private:
    std::string message_;
    std::string pattern_;
    bool has_pattern_ = false;
    std::size_t position_ = npos;
};

namespace error {

/// Base of the `Error.*` family: each derives directly from the general
/// exception type in Python and carries a fixed sentence.
class Error : public Exception {
public:
    using Exception::Exception;
};

#define ZERKO_FIXED_ERROR(Name, Sentence)                                           \
    class Name : public Error {                                                     \
    public:                                                                         \
        static constexpr std::string_view sentence = Sentence;                      \
        Name() : Error(std::string(sentence)) {}                                    \
        const char* class_name() const noexcept override { return #Name; }          \
    };

/// Builds "<sentence> - \"<name>\"" when a name is given, the sentence alone otherwise.
std::string named_sentence(std::string_view sentence, std::string_view name);

#define ZERKO_NAMED_ERROR(Name, Sentence)                                           \
    class Name : public Error {                                                     \
    public:                                                                         \
        static constexpr std::string_view sentence = Sentence;                      \
        explicit Name(std::string_view name = {})                                   \
            : Error(named_sentence(sentence, name)), name_(name) {}                 \
        const std::string& name() const noexcept { return name_; }                  \
        const char* class_name() const noexcept override { return #Name; }          \
                                                                                    \
    private:                                                                        \
        std::string name_;                                                          \
    };

ZERKO_NAMED_ERROR(WrongAttributeName, "Wrong Name for Attribute")
ZERKO_NAMED_ERROR(PrivateAttributeName, "Used Private Name for Attribute")
ZERKO_FIXED_ERROR(AttributeNameRepeat, "Attribute Name Repeat")
ZERKO_FIXED_ERROR(ParameterInputType, "Used Wrong Class Type in Parameter Block")
ZERKO_FIXED_ERROR(AccessQueueTimeout, "Await Time for File Access is Out")
ZERKO_FIXED_ERROR(NoFeedbackEmail, "Lost Email to Send Feedback Message")
ZERKO_FIXED_ERROR(ValidationError, "Check Task Found Issue")

#undef ZERKO_FIXED_ERROR
#undef ZERKO_NAMED_ERROR

}  // namespace error

/// Class name and text of any exception, for "{}: {}" log lines. Faces that
/// carry foreign errors (Python) install a describer for their own types.
struct ErrorDescription {
    std::string class_name;
    std::string text;
};
ErrorDescription describe(const std::exception_ptr& error);
using ErrorDescriber = bool (*)(const std::exception_ptr&, ErrorDescription&);
void set_error_describer(ErrorDescriber describer);

}  // namespace zerko
