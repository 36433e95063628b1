#include "clients/directory/ErrnoFailure.h"

#include <cerrno>

namespace clients::directory {

using cloudclientlib::CCloudExc;
using cloudclientlib::CObjectNotFoundExc;
using cloudclientlib::EFailure;

SErrnoMeaning MeaningOf(int errorNumber) {
    switch (errorNumber) {
        case ENOENT:
            return {EFailure::notFound, false, "it or a folder above it does not exist"};
        case EACCES:
        case EPERM:
            return {EFailure::accessDenied, false, "access is denied"};
        case EROFS:
            return {EFailure::accessDenied, false, "the file system is read-only"};
        case ENOSPC:
            return {EFailure::quota, false, "no space is left"};
        case EDQUOT:
            return {EFailure::quota, false, "the disk quota is used up"};
        case ENOTDIR:
            return {EFailure::conflict, false, "an object stands where a folder is needed"};
        case EISDIR:
            return {EFailure::conflict, false, "a folder stands where an object is needed"};
        case EEXIST:
        case ENOTEMPTY:
        case ETXTBSY:
            return {EFailure::conflict, false, "something else stands in the way"};
        case ELOOP:
            return {EFailure::other, false, "a symbolic link stands in the path, and links are never followed"};
        case EXDEV:
            return {EFailure::other, false, "the path leaves the root folder or its file system"};
        case ENAMETOOLONG:
            return {EFailure::other, false, "the name, or the whole path, is too long for the file system"};
        case EINVAL:
        case EILSEQ:
            return {EFailure::other, false, "the file system does not accept the name or the request"};
        case EFBIG:
            return {EFailure::other, false, "the object is too large for the file system"};
        case ENOSYS:
        case EOPNOTSUPP:
            return {EFailure::other, false, "the system does not provide a call that is needed"};
        case EUCLEAN:
        case EBADMSG:
            return {EFailure::corrupt, false, "the file system is damaged"};
        case EIO:
            return {EFailure::corrupt, true, "the device failed to read or write"};
        case EMFILE:
        case ENFILE:
            return {EFailure::transient, true, "too many files are open"};
        case ENOMEM:
        case ENOBUFS:
            return {EFailure::transient, true, "memory is short"};
        case EAGAIN:
        case EBUSY:
        case EINTR:
        case ENOLCK:
        case ESTALE:
        case ETIMEDOUT:
            return {EFailure::transient, true, "the file system is busy"};
        default:
            return {EFailure::other, false, "a system call failed"};
    }
}

void ThrowCloudFailure(const SOperation& operation, const posix::CPosixExc& failure) {
    const int number = failure.GetErrorNumber();
    if (operation.isRead && number == ENOENT) {
        throw CObjectNotFoundExc(std::string(operation.name), operation.path);
    }
    const auto meaning = MeaningOf(number);
    throw CCloudExc(
        {meaning.kind, meaning.retryable, std::string(operation.name), operation.path, std::string(meaning.reason)},
        failure);
}

void ThrowCloudFailure(const SOperation& operation, EFailure kind, std::string reason) {
    throw CCloudExc({kind, false, std::string(operation.name), operation.path, std::move(reason)});
}

void ThrowOutOfMemory(const SOperation& operation) {
    throw CCloudExc(
        {EFailure::transient, true, std::string(operation.name), operation.path, "not enough memory for the object"});
}

}  // namespace clients::directory
