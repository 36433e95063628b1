#include "agent/run/SmallFiles.h"

#include <exception>
#include <utility>

#include "agent/fs/Attributes.h"

namespace agent {

namespace {

constexpr std::size_t batchesPerThread = 6;

}  // namespace

CSmallFiles::CSmallFiles(const CRestoreTarget& target, std::size_t threads)
    : limit_(threads * batchesPerThread), targets_(threads, target), workers_(threads) {}

CSmallFiles::~CSmallFiles() {
    while (!IsEmpty()) {
        static_cast<void>(TakeOldest());
    }
}

void CSmallFiles::Submit(std::unique_ptr<SBatch> batch) {
    batches_.push_back(std::move(batch));
    SBatch& submitted = *batches_.back();
    submitted.done = workers_.Submit([this, &submitted](std::size_t worker) { Write(submitted, worker); });
}

std::unique_ptr<CSmallFiles::SBatch> CSmallFiles::TakeOldest() {
    std::unique_ptr<SBatch> oldest = std::move(batches_.front());
    batches_.pop_front();
    if (oldest->done) {
        oldest->done->Wait();
    }
    return oldest;
}

void CSmallFiles::Write(SBatch& batch, std::size_t worker) {
    for (auto& file : batch.files) {
        try {
            targets_[worker].WriteFile(file.path, file.fileOffset, {batch.bytes.data() + file.begin, file.length},
                                       file.entry.Unpack());
        } catch (const CAttributesExc& fault) {
            file.attributeFault = fault.what();
        } catch (const std::exception& failure) {
            file.failure = failure.what();
        }
    }
}

}  // namespace agent
