#pragma once

#include <memory>
#include <span>

#include "common/digest.h"
#include "common/export.h"

namespace digest {

/// An MD5 over data that comes piece by piece. For one thread.
class CB_EXPORT CMd5 {
public:
    CMd5();
    ~CMd5();
    CMd5(CMd5&&) noexcept;
    CMd5& operator=(CMd5&&) noexcept;

    void Update(std::span<const char> data);
    /// The digest of all data so far; the object then starts anew.
    [[nodiscard]] md5_digest_t Finish();

private:
    struct SContext;
    std::unique_ptr<SContext> context_;
};

}  // namespace digest
