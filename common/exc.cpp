#include "common/exc.h"

namespace exc {

namespace {

/// what() is read up to its first NUL; a NUL in a path or a name must not hide what stands behind it.
std::string ShowNuls(std::string text) {
    for (std::size_t at = text.find('\0'); at != std::string::npos; at = text.find('\0', at)) {
        text.replace(at, 1, "\\0");
    }
    return text;
}

}  // namespace

struct CExc::STexts {
    std::string message;
    std::string chain;
    bool hasCauseText;
};

CExc::CExc(std::string message) : CExc(std::move(message), {}) {}

CExc::CExc(std::string message, std::string_view causeText) {
    std::string chain = message;
    if (!causeText.empty()) {
        chain.append(": ").append(causeText);
    }
    texts_ = std::make_shared<const STexts>(STexts{std::move(message), ShowNuls(std::move(chain)), !causeText.empty()});
}

CExc::CExc(const CExc&) = default;
// Moving would leave an exception without its texts behind; copying is as cheap.
CExc::CExc(CExc&& other) noexcept : texts_(other.texts_) {}
CExc& CExc::operator=(const CExc&) = default;
CExc& CExc::operator=(CExc&& other) noexcept {
    texts_ = other.texts_;
    return *this;
}
CExc::~CExc() = default;

const char* CExc::what() const noexcept { return texts_->chain.c_str(); }
const std::string& CExc::GetMessage() const noexcept { return texts_->message; }
bool CExc::HasCauseText() const noexcept { return texts_->hasCauseText; }

CRuntimeExc::CRuntimeExc(SWithCauseText, std::string message, std::string_view causeText)
    : CExc(std::move(message), causeText) {}

CRuntimeExc CRuntimeExc::WithCause(std::string message, const std::exception& cause) {
    return {SWithCauseText{}, std::move(message), ChainText(cause)};
}

std::unique_ptr<CExc> CRuntimeExc::Clone() const { return std::make_unique<CRuntimeExc>(*this); }
void CRuntimeExc::Generate() const { throw CRuntimeExc(*this); }

CNotImplExc::CNotImplExc(std::string signature) : CExc(std::move(signature)) {}
std::unique_ptr<CExc> CNotImplExc::Clone() const { return std::make_unique<CNotImplExc>(*this); }
void CNotImplExc::Generate() const { throw CNotImplExc(*this); }

void RethrowCause(const std::exception& failure) {
    const auto* nesting = dynamic_cast<const std::nested_exception*>(&failure);
    if (nesting != nullptr && nesting->nested_ptr()) {
        nesting->rethrow_nested();
    }
}

std::string ChainText(const std::exception& failure) {
    const auto* own = dynamic_cast<const CExc*>(&failure);
    if (own != nullptr && own->HasCauseText()) {
        return own->what();
    }
    std::string text = failure.what();
    try {
        RethrowCause(failure);
    } catch (const std::exception& cause) {
        text.append(": ").append(ChainText(cause));
    } catch (...) {
        text.append(": unknown error");
    }
    return text;
}

void RegenTraceWithMessage(const std::exception& cause, std::string message) {
    std::throw_with_nested(CRuntimeExc::WithCause(std::move(message), cause));
}

}  // namespace exc
