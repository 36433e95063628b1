#include "clients/directory/Streams.h"

#include <cerrno>

namespace clients::directory {

using cloudclientlib::EFailure;

CDownloadStream::CDownloadStream(std::shared_ptr<CStore> store, SOperation operation, const SPlace& place)
    : store_(std::move(store)), operation_(std::move(operation)), object_(OpenObject(*store_, place)) {}

std::size_t CDownloadStream::Read(std::span<char> buffer) {
    return Translated(operation_, [&] {
        const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), object_.size - position_);
        const std::size_t got = object_.file.ReadAt(position_, buffer.data(), wanted);
        position_ += got;
        if (got < wanted) {
            ThrowCloudFailure(operation_, EFailure::corrupt, "the object's file ended before its size");
        }
        if (position_ == object_.size) {
            CheckUnchanged();
        }
        return got;
    });
}

void CDownloadStream::CheckUnchanged() const {
    struct stat info {};
    if (::fstat(object_.file.GetFd(), &info) != 0) {
        throw posix::CPosixExc("look at", object_.file.GetPath(), errno);
    }
    const bool same = static_cast<std::uint64_t>(info.st_size) == object_.size &&
                      info.st_mtim.tv_sec == object_.modified.tv_sec &&
                      info.st_mtim.tv_nsec == object_.modified.tv_nsec;
    if (!same) {
        ThrowCloudFailure(operation_, EFailure::corrupt, "the object's file was changed while it was read");
    }
}

CUploadStream::CUploadStream(std::shared_ptr<CStore> store, SOperation operation, SPlace place, std::uint64_t size)
    : store_(std::move(store)),
      operation_(std::move(operation)),
      size_(size),
      object_(std::make_unique<CPendingObject>(*store_, std::move(place))) {}

CPendingObject& CUploadStream::GetObject() {
    if (!object_) {
        ThrowCloudFailure(operation_, EFailure::other, "the stream has failed or is finished");
    }
    return *object_;
}

void CUploadStream::Refuse(const std::string& reason) {
    object_.reset();
    ThrowCloudFailure(operation_, EFailure::other, reason);
}

void CUploadStream::Write(std::span<const char> data) {
    auto& object = GetObject();
    if (data.size() > size_ - written_) {
        Refuse("more bytes than the " + std::to_string(size_) + " announced");
    }
    Translated(operation_, [&] {
        try {
            object.Write(data);
        } catch (...) {
            object_.reset();
            throw;
        }
    });
    written_ += data.size();
}

void CUploadStream::Finish() {
    auto& object = GetObject();
    if (written_ < size_) {
        Refuse("only " + std::to_string(written_) + " of the " + std::to_string(size_) + " bytes announced");
    }
    const auto taken = std::move(object_);  // let go on success and on failure alike
    Translated(operation_, [&] { object.Publish(); });
}

}  // namespace clients::directory
