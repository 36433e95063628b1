#include "cloudclientlib/ICloudClient.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

namespace cloudclientlib {
namespace {

/// The number of a virtual method's slot: a pointer to a virtual member holds, on this platform, one more than the
/// method's place in the table of virtual methods, in bytes.
template <class Method>
std::ptrdiff_t SlotOf(Method method) {
    std::ptrdiff_t place = 0;
    static_assert(sizeof(method) == 2 * sizeof(place));
    std::memcpy(&place, &method, sizeof(place));
    return (place - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

// Hosts bring clients that were compiled apart from the library: the order of the operations is a binary interface.
TEST(CloudClient, TheOrderOfItsOperationsIsFixed) {
    using client = ICloudClient;
    using whole_t = task::task_ptr (client::*)(const std::string&, client::buffer_ptr);
    using range_t = task::task_ptr (client::*)(const std::string&, client::buffer_ptr, unsigned long, unsigned long);
    const std::ptrdiff_t slots[] = {
        SlotOf(static_cast<whole_t>(&client::DownloadFileAsync)),
        SlotOf(static_cast<range_t>(&client::DownloadFileAsync)),
        SlotOf(&client::UploadFileAsync),
        SlotOf(&client::CopyFileAsync),
        SlotOf(&client::DeleteFileAsync),
        SlotOf(&client::GetFileSize),
        SlotOf(&client::IsFileExist),
        SlotOf(&client::CreateFolderAsync),
        SlotOf(&client::DeleteFolderAsync),
        SlotOf(&client::GetFolderSize),
        SlotOf(&client::IsFolderExist),
        SlotOf(&client::QueryFolder),
        SlotOf(&client::GetObjectCount),
        SlotOf(&client::GetStorageQuota),
        SlotOf(&client::GetConcurrentTaskLimit),
        SlotOf(&client::CreateAsyncTaskUtils),
        SlotOf(&client::StartDownload),
        SlotOf(&client::StartUpload),
        SlotOf(&client::RetrieveArchive),
        SlotOf(&client::GetArchiveRetrievalStatus),
    };
    std::ptrdiff_t expected = 2;  // behind the two slots of the destructor
    for (const std::ptrdiff_t slot : slots) {
        EXPECT_EQ(slot, expected++);
    }
}

}  // namespace
}  // namespace cloudclientlib
