#include <algorithm>
#include <limits>
#include <random>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

constexpr unsigned long most = std::numeric_limits<unsigned long>::max();

/// What a range of the bytes is, by the contract.
bytes_t RangeOf(const bytes_t& bytes, unsigned long offset, unsigned long size) {
    const std::size_t begin = std::min<std::size_t>(offset, bytes.size());
    const std::size_t count = std::min<std::size_t>(size, bytes.size() - begin);
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

void ExpectRange(CContext& context, const bytes_t& bytes, unsigned long offset, unsigned long size) {
    ExpectBytes(DownloadRange(context.Client(), "object", offset, size), RangeOf(bytes, offset, size),
                exc::Format("%2 bytes at %1 of an object of %3 bytes", offset, size, bytes.size()));
}

bytes_t UploadSample(CContext& context, std::size_t size) {
    bytes_t bytes = MakeBytes(context.Settings().seed, size);
    Upload(context.Client(), "object", bytes);
    return bytes;
}

void RangeInsideObject(CContext& context) {
    const bytes_t bytes = UploadSample(context, 1000);
    ExpectRange(context, bytes, 0, 1);
    ExpectRange(context, bytes, 0, 999);
    ExpectRange(context, bytes, 1, 1);
    ExpectRange(context, bytes, 500, 100);
    ExpectRange(context, bytes, 0, 1000);
    ExpectRange(context, bytes, 999, 1);
}

void RangeBeyondEndIsCut(CContext& context) {
    const bytes_t bytes = UploadSample(context, 1000);
    ExpectRange(context, bytes, 0, 1001);
    ExpectRange(context, bytes, 999, 2);
    ExpectRange(context, bytes, 500, 5000);
    ExpectRange(context, bytes, 0, 1UL << 40U);
    ExpectRange(context, bytes, 999, 1UL << 40U);
    ExpectRange(context, bytes, 1, most);
    ExpectRange(context, bytes, 999, most);
}

void RangeAtEndIsEmpty(CContext& context) {
    const bytes_t bytes = UploadSample(context, 1000);
    ExpectRange(context, bytes, 1000, 1);
    ExpectRange(context, bytes, 1000, most);
    ExpectRange(context, bytes, 1001, 10);
    ExpectRange(context, bytes, 1UL << 40U, 10);
    ExpectRange(context, bytes, 1UL << 40U, 1UL << 40U);
    ExpectRange(context, bytes, most, most);
    ExpectRange(context, bytes, most, 1);
    ExpectRange(context, bytes, most - 5, 10);
}

void RangeOfNoBytesIsEmpty(CContext& context) {
    const bytes_t bytes = UploadSample(context, 1000);
    ExpectRange(context, bytes, 0, 0);
    ExpectRange(context, bytes, 500, 0);
    ExpectRange(context, bytes, 1000, 0);
    ExpectRange(context, bytes, most, 0);
}

void RangeOfEmptyObject(CContext& context) {
    const bytes_t bytes = UploadSample(context, 0);
    ExpectRange(context, bytes, 0, 0);
    ExpectRange(context, bytes, 0, 1);
    ExpectRange(context, bytes, 0, most);
    ExpectRange(context, bytes, 1, 1);
}

void RangeSetsBufferExactly(CContext& context) {
    const bytes_t bytes = UploadSample(context, 1000);
    for (const std::size_t before : {0UL, 10UL, 5000UL}) {
        for (const unsigned long offset : {0UL, 990UL, 1000UL, 2000UL}) {
            const auto buffer = Share(bytes_t(before, 'x'));
            context.Client().DownloadFileAsync("object", buffer, offset, 100)->Wait();
            ExpectBytes(*buffer, RangeOf(bytes, offset, 100),
                        exc::Format("a buffer of %1 bytes after a range at %2", before, offset));
        }
    }
}

void RandomRanges(CContext& context) {
    std::mt19937_64 random(context.Settings().seed);
    const bytes_t bytes = UploadSample(context, 200'000);
    for (int round = 0; round < 100; ++round) {
        ExpectRange(context, bytes, random() % 210'000, random() % 100'000);
    }
}

void RangeOfReplacedObject(CContext& context) {
    static_cast<void>(UploadSample(context, 1000));
    const bytes_t bytes = UploadSample(context, 100);
    ExpectRange(context, bytes, 0, 1000);
    ExpectRange(context, bytes, 50, 1000);
    ExpectRange(context, bytes, 500, 100);
}

}  // namespace

void AddRangeChecks(checks_t& checks) {
    checks.insert(checks.end(), {
                                    {"RangeInsideObject", RangeInsideObject},
                                    {"RangeBeyondEndIsCut", RangeBeyondEndIsCut},
                                    {"RangeAtEndIsEmpty", RangeAtEndIsEmpty},
                                    {"RangeOfNoBytesIsEmpty", RangeOfNoBytesIsEmpty},
                                    {"RangeOfEmptyObject", RangeOfEmptyObject},
                                    {"RangeSetsBufferExactly", RangeSetsBufferExactly},
                                    {"RandomRanges", RandomRanges},
                                    {"RangeOfReplacedObject", RangeOfReplacedObject},
                                });
}

}  // namespace cloudclientlib::conformance
