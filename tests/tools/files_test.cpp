// Files that the tools write: what stands in their way stays as it is, and the reason is told.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "common/files.h"
#include "support/temporary_folder.h"

namespace perilink::tools {
namespace {

namespace fs = std::filesystem;

class FilesTest : public ::testing::Test {
 protected:
  std::string At(const std::string& name) const { return folder_.At(name); }
  std::string Read(const std::string& name) const { return ReadWholeFile(At(name), 1000); }
  struct stat Status(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(lstat(At(name).c_str(), &status), 0);
    return status;
  }
  static std::string WhyNot(const std::function<void()>& work) {
    try {
      work();
    } catch (const FileError& error) {
      return error.what();
    }
    return "";
  }

  const testing::TemporaryFolder folder_;
};

TEST_F(FilesTest, ReplacesAFileAsItIs) {
  WriteWholeFile(At("file"), "old");
  WriteWholeFile(At("file.part"), "the user's own");
  ASSERT_EQ(chmod(At("file").c_str(), 0640), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(At("file").c_str(), 1234, 5678), 0);
  }
  const struct stat before = Status("file");
  WriteWholeFile(At("file"), "new");
  EXPECT_EQ(Read("file"), "new");
  EXPECT_EQ(Read("file.part"), "the user's own");
  const struct stat after = Status("file");
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()), 2);

  fs::create_symlink("file", At("own"));
  fs::create_symlink("own", At("twice"));
  WriteWholeFile(At("twice"), "through");
  EXPECT_EQ(Read("file"), "through");
  EXPECT_TRUE(fs::is_symlink(At("own")) && fs::is_symlink(At("twice")));
}

TEST_F(FilesTest, WhatIsNotToBeWrittenStaysAndTheReasonIsTold) {
  WriteWholeFile(At("file"), "kept");
  WriteWholeFile(At("readonly"), "kept");
  ASSERT_EQ(chmod(At("readonly").c_str(), 0444), 0);
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  fs::create_directory(At("folder"));
  fs::create_symlink("file", At("own"));
  fs::create_symlink("circle", At("circle"));
  fs::create_symlink("file", At("other"));
  if (geteuid() == 0) {
    ASSERT_EQ(lchown(At("other").c_str(), 1234, 1234), 0);
  }
  const struct {
    const char* name;
    Links links;
    const char* reason;
  } cases[] = {
      {"readonly", Links::kOwnAreFollowed, "it is read-only"},
      {"pipe", Links::kOwnAreFollowed, "it is no regular file"},
      {"folder", Links::kOwnAreFollowed, "it is a folder"},
      {"none/file", Links::kOwnAreFollowed, "no such folder"},
      {"file/file", Links::kOwnAreFollowed, "no such folder"},
      {"circle", Links::kOwnAreFollowed, "links lead in a circle"},
      {"own", Links::kNone, "it is a link"},
      {"pipe", Links::kNone, "it is no regular file"},
      {"other", Links::kOwnAreFollowed, "it is a link of another user's"},
  };
  for (const auto& c : cases) {
    if (std::string(c.name) == "other" && geteuid() != 0) continue;
    const std::string expected = At(c.name) + ": the file can't be written: " + c.reason;
    EXPECT_EQ(WhyNot([&] { RequireWritable(At(c.name), c.links); }), expected);
    EXPECT_EQ(WhyNot([&] { WriteWholeFile(At(c.name), "lost", c.links); }), expected);
  }
  EXPECT_EQ(Read("file"), "kept");
  EXPECT_EQ(Read("readonly"), "kept");
  EXPECT_FALSE(CreateNewFile(At("file"), "lost"));
  EXPECT_FALSE(CreateNewFile(At("circle"), "lost"));
  EXPECT_EQ(FileReason(ENOSPC, true), "the disk is full");
}

// A limit on the size of files takes the place of a full disk.
TEST_F(FilesTest, AFileThatCannotBeWrittenWholeIsNotWritten) {
  WriteWholeFile(At("file"), "kept");
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{1000, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_NE(WhyNot([&] { WriteWholeFile(At("file"), std::string(2000, 'x')); }), "");
  EXPECT_NE(WhyNot([&] { CreateNewFile(At("new"), std::string(2000, 'x')); }), "");
  EXPECT_EQ(Read("file"), "kept");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()), 1);
}

TEST_F(FilesTest, ALockIsHeldAgainstOthersAlsoWhenTheFileIsReplaced) {
  WriteWholeFile(At("file"), "1");
  auto lock = std::make_unique<FileLock>(At("file"));
  EXPECT_EQ(WhyNot([&] { FileLock other(At("file")); }),
            At("file") + ": another process uses the file");
  WriteWholeFile(At("file"), "2");
  const int file = open(At("file").c_str(), O_RDONLY);
  ASSERT_EQ(flock(file, LOCK_EX | LOCK_NB), 0) << "of the new file, nobody has it";
  lock.reset();
  EXPECT_NE(WhyNot([&] { FileLock other(At("file")); }), "") << "the new file is the one";
  close(file);
  EXPECT_EQ(WhyNot([&] { FileLock other(At("file")); }), "");
}

}  // namespace
}  // namespace perilink::tools
