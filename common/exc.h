#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "common/export.h"
#include "common/format.h"

/// The exceptions of the system and their chains of causes.
namespace exc {

/// The base of all exceptions of the system.
///
/// An exception carries its own message and, when it was raised because of another, that one's text: what() is the
/// whole chain in one line ("outer: inner: innermost"; a NUL byte in it shows as "\0"), GetMessage() the outer message
/// alone. The cause itself is nested (std::nested_exception) and found with FindCause. Immutable, may be read from any
/// thread.
class CB_EXPORT CExc : public std::exception {
public:
    ~CExc() override;

    [[nodiscard]] const char* what() const noexcept override;
    [[nodiscard]] const std::string& GetMessage() const noexcept;
    /// Whether what() holds a cause's text behind the message.
    [[nodiscard]] bool HasCauseText() const noexcept;

    /// A copy of the exception, without its nested cause (the cause's text stays in what()).
    [[nodiscard]] virtual std::unique_ptr<CExc> Clone() const = 0;
    /// Throws a copy of this exception.
    [[noreturn]] virtual void Generate() const = 0;

protected:
    explicit CExc(std::string message);
    /// `causeText` is what stands behind the message in what(); empty for none.
    CExc(std::string message, std::string_view causeText);
    CExc(const CExc&);
    CExc(CExc&&) noexcept;
    CExc& operator=(const CExc&);
    CExc& operator=(CExc&&) noexcept;

private:
    struct STexts;
    std::shared_ptr<const STexts> texts_;  // shared, so that copying an exception cannot throw
};

/// The general failure: a message with placeholders %1 ... %N and its arguments.
class CB_EXPORT CRuntimeExc : public CExc {
public:
    template <class... Args>
    explicit CRuntimeExc(std::string_view message, const Args&... args) : CExc(Format(message, args...)) {}

    /// A failure because of `cause`; what() is "message: " and the cause's chain.
    [[nodiscard]] static CRuntimeExc WithCause(std::string message, const std::exception& cause);

    [[nodiscard]] std::unique_ptr<CExc> Clone() const override;
    [[noreturn]] void Generate() const override;

private:
    struct SWithCauseText {};
    CRuntimeExc(SWithCauseText, std::string message, std::string_view causeText);
};

/// An operation that this system does not provide; the message is the operation's full signature text.
class CB_EXPORT CNotImplExc : public CExc {
public:
    explicit CNotImplExc(std::string signature);

    [[nodiscard]] std::unique_ptr<CExc> Clone() const override;
    [[noreturn]] void Generate() const override;
};

/// Throws the exception nested in `failure`; returns when there is none. (std::rethrow_if_nested ends the process on an
/// exception that was nested outside of a handler.)
CB_EXPORT void RethrowCause(const std::exception& failure);

/// The text of an exception with the texts of all its nested causes.
[[nodiscard]] CB_EXPORT std::string ChainText(const std::exception& failure);

/// Throws a CRuntimeExc with the message, and with `cause` nested in it. To be called in the handler that caught
/// `cause`; elsewhere only its text is kept.
[[noreturn]] CB_EXPORT void RegenTraceWithMessage(const std::exception& cause, std::string message);

template <class... Args>
[[noreturn]] void RegenTraceExc(const std::exception& cause, std::string_view message, const Args&... args) {
    RegenTraceWithMessage(cause, Format(message, args...));
}

/// The first exception of type T in the chain of `failure` (the outermost included), as a copy.
template <class T>
[[nodiscard]] std::optional<T> FindCause(const std::exception& failure) {
    if (const auto* found = dynamic_cast<const T*>(&failure)) {
        return *found;
    }
    try {
        RethrowCause(failure);
    } catch (const std::exception& cause) {
        return FindCause<T>(cause);
    } catch (...) {
        return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace exc
