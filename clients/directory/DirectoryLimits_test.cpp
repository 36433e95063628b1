#include <grp.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>

#include "clients/directory/DirectoryClient.h"
#include "clients/directory/TestRoot.h"

namespace clients::directory {
namespace {

namespace fs = std::filesystem;
using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;

/// Collects what a child process finds wrong, since GoogleTest's own failures stay in the child.
class CFindings {
public:
    template <class TValue, class TExpected>
    void Equal(const char* what, const TValue& value, const TExpected& expected) {
        if (!(value == expected)) {
            text_ += std::string(what) + " is " + testing::PrintToString(value) + ", not " +
                     testing::PrintToString(expected) + "\n";
        }
    }
    [[nodiscard]] const std::string& GetText() const { return text_; }

private:
    std::string text_;
};

/// Uploads until the file system is full; gives the failure.
std::string FillUp(CDirectoryClient& client) {
    const std::string piece(64 * 1024, 'f');
    for (int i = 0; i < 100; ++i) {
        const auto failure = FailureOf([&] { Upload(client, "fill/" + std::to_string(i), piece); });
        if (failure != "no failure") {
            return failure.substr(0, failure.find("': ")) + failure.substr(failure.find("': "), 21);
        }
    }
    return "never full";
}

std::string FullDisk(const std::string& root) {
    CFindings findings;
    MountPrivateTmpfs(root, "1m");
    CDirectoryClient client(root);
    const std::string old(100 * 1024, 'o');
    Upload(client, "object", old);
    const auto filled = FillUp(client);
    findings.Equal("filling", filled.substr(0, 23) + filled.substr(filled.find("': ")),
                   std::string("quota|UploadFile 'fill/': no space is left"));
    const auto count = client.GetObjectCount("");

    const std::string bigger(200 * 1024, 'n');
    findings.Equal("upload", FailureOf([&] { Upload(client, "object", bigger); }).substr(0, 46),
                   std::string("quota|UploadFile 'object': no space is left"));
    findings.Equal("copy", FailureOf([&] { client.CopyFileAsync("object", "copy")->Wait(); }).substr(0, 42),
                   std::string("quota|CopyFile 'copy': no space is left"));
    const auto stream = client.StartUpload("object", bigger.size());
    findings.Equal("stream", FailureOf([&] { stream->Write(bigger); }).substr(0, 44),
                   std::string("quota|StartUpload 'object': no space is left"));
    findings.Equal("the stream's end", FailureOf([&] { stream->Finish(); }),
                   std::string("other|StartUpload 'object': the stream has failed or is finished"));

    findings.Equal("the old object", Download(client, "object") == old, true);
    findings.Equal("objects", client.GetObjectCount(""), count);
    findings.Equal("temp files", CountFiles(root + "/.cloudbackup-tmp"), std::size_t{0});
    findings.Equal("the copy is there", client.IsFileExist("copy"), false);
    {
        CDirectoryClient second(root);
        findings.Equal("a full store opened anew", Download(second, "object") == old, true);
    }
    client.DeleteFolderAsync("fill", nullptr)->Wait();
    Upload(client, "object", bigger);
    findings.Equal("the new object", Download(client, "object") == bigger, true);
    return findings.GetText();
}

TEST(DirectoryLimits, FullDiskKeepsTheOldObjectAndHealsByDeletion) {
    const CTestRoot root;
    EXPECT_EQ(InChild([&] { return FullDisk(root.GetPath()); }), "");
}

/// What a client does in a root that it may read but not write.
std::string ReadOnly(const std::string& root, const std::string& reason) {
    CFindings findings;
    CDirectoryClient client(root);
    findings.Equal("the object", Download(client, "f/object"), std::string("content"));
    findings.Equal("the count", client.GetObjectCount(""), std::uint64_t{1});
    findings.Equal("the listing", client.QueryFolder("").size(), std::size_t{1});
    const auto denied = [&](const char* what, const std::string& named, const std::function<void()>& action) {
        const auto failure = FailureOf(action);
        const auto expected = "access denied|" + named + ": " + reason;
        findings.Equal(what, failure, expected);
    };
    denied("upload", "UploadFile 'f/object'", [&] { Upload(client, "f/object", "new"); });
    denied("upload elsewhere", "UploadFile 'g/new'", [&] { Upload(client, "g/new", "new"); });
    denied("copy", "CopyFile 'f/copy'", [&] { client.CopyFileAsync("f/object", "f/copy")->Wait(); });
    denied("stream", "StartUpload 'f/new'", [&] { static_cast<void>(client.StartUpload("f/new", 1)); });
    denied("folder", "CreateFolder 'h'", [&] { client.CreateFolderAsync("h")->Wait(); });
    denied("deletion", "DeleteFile 'f/object'", [&] { client.DeleteFileAsync("f/object")->Wait(); });
    denied("folder deletion", "DeleteFolder 'f'", [&] { client.DeleteFolderAsync("f", nullptr)->Wait(); });
    findings.Equal("the object after all", Download(client, "f/object"), std::string("content"));
    findings.Equal("deletion of nothing", FailureOf([&] { client.DeleteFileAsync("f/none")->Wait(); }),
                   std::string("no failure"));
    return findings.GetText();
}

TEST(DirectoryLimits, ReadOnlyFileSystemIsReadAndRefusesWrites) {
    const CTestRoot root;
    EXPECT_EQ(InChild([&] {
                  MountPrivateTmpfs(root.GetPath(), "1m");
                  {
                      CDirectoryClient writer(root.GetPath());
                      Upload(writer, "f/object", "content");
                  }
                  fs::create_directories(root.In(".cloudbackup-tmp/left"));
                  WritePlain(root.In(".cloudbackup-tmp/left/0"), "unfinished");
                  MakeReadOnly(root.GetPath());
                  auto findings = ReadOnly(root.GetPath(), "the file system is read-only");
                  return findings + (CountFiles(root.In(".cloudbackup-tmp")) == 1 ? "" : "the leftover vanished");
              }),
              "");
}

/// Root is above all file modes, so it becomes somebody else first.
void BecomeNobody() {
    constexpr unsigned nobody = 65534;
    if (::getuid() == 0 && (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
        throw std::runtime_error("cannot become nobody");
    }
}

void SetOwnerAndMode(const std::string& path, mode_t mode) {
    constexpr unsigned nobody = 65534;
    if (::getuid() == 0 && ::chown(path.c_str(), nobody, nobody) != 0) {
        throw std::runtime_error("chown");
    }
    fs::permissions(path, static_cast<fs::perms>(mode));
}

TEST(DirectoryLimits, RootWithoutWritePermissionIsReadAndRefusesWrites) {
    const CTestRoot base;
    fs::permissions(base.GetPath(), static_cast<fs::perms>(0755));
    const std::string root = base.In("root");
    {
        CDirectoryClient writer(root, ERoot::createMissing, 1);
        Upload(writer, "f/object", "content");
    }
    fs::remove(root + "/.cloudbackup-tmp");
    for (const std::string& path : {root + "/f/object", root + "/f", root}) {
        SetOwnerAndMode(path, 0500);
    }
    EXPECT_EQ(InChild([&] {
                  BecomeNobody();
                  return ReadOnly(root, "access is denied");
              }),
              "");
    fs::permissions(root, static_cast<fs::perms>(0700));  // so that one who is not root can clean up
    fs::permissions(root + "/f", static_cast<fs::perms>(0700));
}

TEST(DirectoryLimits, RootThatMayNotBeReadIsDeniedAtOpening) {
    const CTestRoot base;
    fs::permissions(base.GetPath(), static_cast<fs::perms>(0755));
    const std::string root = base.In("root");
    fs::create_directory(root);
    SetOwnerAndMode(root, 0000);
    EXPECT_EQ(InChild([&] {
                  BecomeNobody();
                  return FailureOf([&] { CDirectoryClient client(root); });
              }),
              "access denied|OpenRoot '" + root + "': access is denied");
}

/// Leaves the process room for so many open files.
void LimitOpenFiles(rlim_t count) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = count;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        throw std::runtime_error("setrlimit");
    }
}

TEST(DirectoryLimits, TooManyOpenFilesIsTransientAndPasses) {
    const CTestRoot root;
    EXPECT_EQ(InChild([&]() -> std::string {
                  CFindings findings;
                  CDirectoryClient client(root.GetPath());
                  Upload(client, "object", "content");
                  const auto old = client.StartUpload("other", 1);
                  rlimit limit{};
                  ::getrlimit(RLIMIT_NOFILE, &limit);
                  LimitOpenFiles(0);
                  try {
                      Upload(client, "object", "new");
                      return "no failure";
                  } catch (const CCloudExc& failure) {
                      findings.Equal("kind", failure.GetKind() == EFailure::transient, true);
                      findings.Equal("retryable", failure.IsRetryable(), true);
                      findings.Equal("message", failure.GetMessage(),
                                     std::string("UploadFile 'object': too many files are open"));
                  }
                  findings.Equal("read", FailureOf([&] { static_cast<void>(Download(client, "object")); }),
                                 std::string("transient|DownloadFile 'object': too many files are open"));
                  ::setrlimit(RLIMIT_NOFILE, &limit);
                  findings.Equal("object", Download(client, "object"), std::string("content"));
                  Upload(client, "object", "new");
                  findings.Equal("object later", Download(client, "object"), std::string("new"));
                  return findings.GetText();
              }),
              "");
}

TEST(DirectoryLimits, DeepTreesNeedFewDescriptors) {
    const CTestRoot root;
    EXPECT_EQ(InChild([&] {
                  CFindings findings;
                  LimitOpenFiles(40);
                  CDirectoryClient client(root.GetPath());
                  std::string path;
                  for (int i = 0; i < 200; ++i) {
                      path += "d/";
                  }
                  Upload(client, path + "object", "deep");
                  findings.Equal("the count", client.GetObjectCount(""), std::uint64_t{1});
                  findings.Equal("the size", client.GetFolderSize("d"), std::uint64_t{4});
                  findings.Equal("the object", Download(client, path + "object"), std::string("deep"));
                  client.DeleteFolderAsync("d", nullptr)->Wait();
                  findings.Equal("the folder is there", client.IsFolderExist("d"), false);
                  return findings.GetText();
              }),
              "");
}

/// From now on openat2 fails with the given number in this process, as on an old kernel or in a strict sandbox.
void ForbidOpenat2(int errorNumber) {
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(errorNumber)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(code), code};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        throw std::runtime_error("seccomp is not available");
    }
}

TEST(DirectoryLimits, SystemWithoutOpenat2IsRefusedAtOpening) {
    const CTestRoot root;
    for (const int number : {ENOSYS, EPERM}) {
        EXPECT_EQ(InChild([&]() -> std::string {
                      ForbidOpenat2(number);
                      try {
                          CDirectoryClient client(root.GetPath());
                      } catch (const CCloudExc& failure) {
                          return failure.what();
                      }
                      return "opened";
                  }),
                  "OpenRoot '" + root.GetPath() +
                      "': the system does not provide a call that is needed: Cannot use openat2 (Linux 5.6 or newer) "
                      "in '" +
                      root.GetPath() + "': Function not implemented");
    }
}

}  // namespace
}  // namespace clients::directory
