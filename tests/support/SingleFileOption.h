#pragma once

#include "common/options.h"

namespace test {

/// Sets the host's option of whole-file storage metadata while it lives. For one thread.
class SingleFileOption {
public:
    explicit SingleFileOption(bool enable) : before_(options_t::GetInst().IsSingleFileCloudMetadataEnabled()) {
        options_t::GetInst().EnableSingleFileCloudMetadata(enable);
    }
    SingleFileOption(const SingleFileOption&) = delete;
    SingleFileOption& operator=(const SingleFileOption&) = delete;
    ~SingleFileOption() { options_t::GetInst().EnableSingleFileCloudMetadata(before_); }

private:
    const bool before_;
};

}  // namespace test
