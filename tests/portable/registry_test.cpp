// The registry's file: shared by processes, killed processes, damage and what stands in its place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "battery/registry_fixture.h"
#include "registry_store.h"

namespace perilink::platform {
namespace {

namespace fs = std::filesystem;

class RegistryFile : public RegistryTest {
 protected:
  std::string Contents() const {
    std::ifstream file(file_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // In one go, as a writing process does.
  void Replace(const std::string& text) const {
    std::ofstream(folder_ / "test") << text;
    fs::rename(folder_ / "test", file_);
  }

  // What a look at the value that SetRawRecord sets, and a write of another one, end with.
  static DWORD Read() {
    HKEY key = nullptr;
    const LSTATUS status =
        RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\DeviceBatteryOptimize", 0, KEY_READ, &key);
    if (status != 0) return static_cast<DWORD>(status);
    const auto error = static_cast<DWORD>(
        RegQueryValueExW(key, L"BatteryValue_1a2b3c", nullptr, nullptr, nullptr, nullptr));
    RegCloseKey(key);
    return error;
  }
  static DWORD Write(size_t size = 1) {
    const std::vector<BYTE> data(size, 0xAB);
    return static_cast<DWORD>(RegSetValueExW(HKEY_CURRENT_USER, L"Other", 0, REG_BINARY,
                                             data.data(), static_cast<DWORD>(size)));
  }

  const fs::path file_ = folder_ / "registry.txt";
};

TEST_F(RegistryFile, DamageLosesNoMoreThanItsLine) {
  SetRawRecord(L"good");
  const std::string good = Contents();
  Replace(good + "value \"BatteryValue_1a2b3c\" 1 0g\n?\n");
  EXPECT_EQ(RawRecord(), L"good");
  Replace("perilink registry 1\nvalue \"BatteryValue_1a2b3c\" text \"of no key\"\n");
  EXPECT_EQ(RawRecord(), L"");
  // What nobody understands is put aside, not overwritten.
  Replace("something else");
  SetRawRecord(L"new");
  EXPECT_EQ(RawRecord(), L"new");
  EXPECT_TRUE(fs::exists(folder_ / "registry.damaged"));
}

TEST_F(RegistryFile, AKilledWriterLeavesTheOldOrTheNew) {
  SetRawRecord(L"bbb");
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (size_t turn = 0;; ++turn)
        SetRawRecord(turn % 2 == 0 ? std::wstring(250, L'a') : L"bbb");
    }
    usleep(static_cast<useconds_t>(1000 + 700 * i));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::wstring value = RawRecord();
    EXPECT_TRUE(value == std::wstring(250, L'a') || value == L"bbb") << i;
  }
  SetRawRecord(L"alive");
  EXPECT_EQ(RawRecord(), L"alive");
}

// Whatever stands in the place of a file is an error at once, and once it has gone all values are
// there.
TEST_F(RegistryFile, WhatIsNoFileOfTheUsersIsRefused) {
  SetRawRecord(L"good");
  const fs::path kept = folder_ / "kept";
  const fs::path lock = folder_ / "registry.lock";
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const auto limit_files = [&](rlim_t most) {
    const rlimit lowered{most, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lowered);
  };
  const auto leave_no_descriptors = [&](const fs::path& path) {
    fs::copy_file(kept, path);
    limit_files(3);
  };
  const struct {
    const char* name;
    std::function<void(const fs::path&)> place;
    DWORD error = ERROR_ACCESS_DENIED;
  } kObstacles[] = {
      {"link", [&](const fs::path& path) { fs::create_symlink(kept, path); }},
      {"link to nothing", [&](const fs::path& path) { fs::create_symlink("nothing", path); }},
      {"FIFO", [](const fs::path& path) { mkfifo(path.c_str(), 0600); }},
      {"folder", [](const fs::path& path) { fs::create_directory(path); }},
      {"no descriptors left", leave_no_descriptors, ERROR_TOO_MANY_OPEN_FILES},
  };
  for (const auto& obstacle : kObstacles) {
    SCOPED_TRACE(obstacle.name);
    for (const fs::path& path : {file_, lock}) {
      fs::rename(path, kept);
      obstacle.place(path);
      if (path == file_) {
        EXPECT_EQ(Read(), obstacle.error);
      }
      EXPECT_EQ(Write(), obstacle.error);
      limit_files(limit.rlim_cur);
      fs::remove(path);
      fs::rename(kept, path);
      EXPECT_EQ(RawRecord(), L"good");
    }
  }
  // What lies where the new file is made is never written through.
  Replace(Contents());
  fs::create_symlink(lock, folder_ / "registry.new");
  EXPECT_EQ(Write(), 0u);
  EXPECT_EQ(fs::file_size(lock), 0u);
}

TEST_F(RegistryFile, ItsFolderIsPrivate) {
  const fs::path folder = folder_ / "state" / "perilink";
  const auto mode = [&] { return fs::status(folder).permissions(); };
  SetRegistryFolder(folder);
  EXPECT_EQ(Read(), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(fs::exists(folder));
  SetRawRecord(L"good");
  EXPECT_EQ(mode(), fs::perms::owner_all);
  fs::permissions(folder, fs::perms{0755});
  EXPECT_EQ(RawRecord(), L"good");
  EXPECT_EQ(mode(), fs::perms::owner_all);
  const auto refused = [] {
    return Read() == ERROR_ACCESS_DENIED && Write() == ERROR_ACCESS_DENIED;
  };
  fs::permissions(folder, fs::perms{0770});
  EXPECT_TRUE(refused());
  fs::permissions(folder, fs::perms{0700});
  if (chown(file_.c_str(), 1, 1) == 0 || chown(folder.c_str(), 1, 1) == 0) {  // root may
    EXPECT_TRUE(refused());
    EXPECT_EQ(chown(folder.c_str(), geteuid(), getegid()), 0);
  }
  fs::rename(folder, folder_ / "elsewhere");
  fs::create_symlink(folder_ / "elsewhere", folder);
  EXPECT_TRUE(refused());
}

TEST_F(RegistryFile, LiesWhereTheUserKeepsState) {
  const passwd* const user = getpwuid(geteuid());
  ASSERT_NE(user, nullptr);
  const std::string at_home = user->pw_dir + std::string("/.local/state/perilink");
  const auto folder = [](const char* state, const char* home) {
    setenv("XDG_STATE_HOME", state, 1);
    setenv("HOME", home, 1);
    return DefaultRegistryFolder();
  };
  EXPECT_EQ(folder("/s", "/h"), "/s/perilink");
  EXPECT_EQ(folder("relative", "/h"), "/h/.local/state/perilink");
  EXPECT_EQ(folder("", "relative"), at_home);
  unsetenv("XDG_STATE_HOME");
  unsetenv("HOME");
  EXPECT_EQ(DefaultRegistryFolder(), at_home);
}

TEST_F(RegistryFile, ReadsAllThatItWritesAndWritesNoMore) {
  SetRawRecord(L"good");
  ASSERT_EQ(Write(1000), 0u);
  const size_t most = 1000 + (kLargestRegistry - Contents().size()) / 2;
  EXPECT_EQ(Write(most), 0u);
  const std::string largest = Contents();
  EXPECT_EQ(Write(most + 1), ERROR_FILE_TOO_LARGE);
  EXPECT_EQ(Contents(), largest);
  EXPECT_EQ(RawRecord(), L"good");
  Replace(largest + "    ");
  EXPECT_EQ(Read(), ERROR_FILE_TOO_LARGE);
  EXPECT_EQ(Write(), ERROR_FILE_TOO_LARGE);
  Replace(largest);
  // The disk may be full before that.
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit small{1000, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_EQ(Write(999), ERROR_FILE_TOO_LARGE);
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(Contents(), largest);
  EXPECT_FALSE(fs::exists(folder_ / "registry.new"));
}

// A process that has been stopped with the lock keeps it.
TEST_F(RegistryFile, ALockThatIsNotLetGoOfIsAnError) {
  SetRawRecord(L"good");
  const int lock = open((folder_ / "registry.lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  EXPECT_EQ(Write(), ERROR_LOCK_VIOLATION);
  EXPECT_EQ(RawRecord(), L"good");
  close(lock);
  EXPECT_EQ(Write(), 0u);
}

}  // namespace
}  // namespace perilink::platform
