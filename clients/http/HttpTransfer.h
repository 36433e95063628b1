#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <string_view>

#include "clients/http/HttpEngine.h"
#include "common/md5_stream.h"

namespace clients::http {

/// One libcurl transfer; used again for one request after another. For one thread.
class CHttpTransfer {
public:
    CHttpTransfer();
    CHttpTransfer(const CHttpTransfer&) = delete;
    CHttpTransfer& operator=(const CHttpTransfer&) = delete;

    void Prepare(SHttpRequest request, const SHttpOptions& options);
    [[nodiscard]] CURL* GetHandle() const { return handle_.get(); }
    /// What came of it; the request, with the buffers it held, is let go.
    [[nodiscard]] SHttpResult TakeResult(CURLcode code);

private:
    struct SHandleDeleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    struct SListDeleter {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    void SetConnection(const SHttpOptions& options);
    void SetHeaders();
    void SetBody();
    std::size_t TakeBody(const char* data, std::size_t size);
    std::size_t TakeErrorBody(std::string_view data);
    std::size_t TakeOfWhole(std::string_view data);
    std::size_t Take(std::string_view data);
    /// How much may come.
    [[nodiscard]] std::uint64_t MostBytes() const;
    /// Less than 0 when the server says nothing.
    [[nodiscard]] curl_off_t AnnouncedBytes() const;
    void TakeHeader(std::string line);
    [[nodiscard]] SHttpFailure Describe(CURLcode code) const;

    static std::size_t OnBody(char* data, std::size_t one, std::size_t size, void* self);
    static std::size_t OnHeader(char* data, std::size_t one, std::size_t size, void* self);

    std::unique_ptr<CURL, SHandleDeleter> handle_;
    std::unique_ptr<curl_slist, SListDeleter> headers_;
    std::string errorText_;
    SHttpRequest request_;
    SHttpAnswer answer_;
    std::optional<digest::CMd5> wholeMd5_;  // while a whole object comes instead of a range
    std::uint64_t seen_ = 0;                // of the body, also what is not kept
    bool tooLarge_ = false;
    bool isEnough_ = false;  // the transfer is ended by us, without failure
};

}  // namespace clients::http
