// Something else than a store's file in its place.

#include "unit/os/storefixture.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** Something put at a path; @c make returns why it cannot be made here, or nothing. */
struct Thing {
  const char* name;
  std::function<std::string(const fs::path&)> make;
};

std::string errorUnless(bool made) {
  return made ? "" : std::strerror(errno);
}

Thing fileWith(const char* name, const std::string& content) {
  return {name, [content](const fs::path& path) {
            writeFile(path, content);
            return std::string();
          }};
}

Thing linkTo(const char* name, const std::string& target, const std::string& content) {
  return {name, [=](const fs::path& path) {
            if (!content.empty()) writeFile(path.parent_path() / target, content);
            fs::create_symlink(target, path);
            return std::string();
          }};
}

Thing device(const char* name, unsigned minor) {
  return {name, [minor](const fs::path& path) {
            return errorUnless(::mknod(path.c_str(), S_IFCHR | 0666, makedev(1, minor)) == 0);
          }};
}

std::string makeDirectory(const fs::path& path) {
  return errorUnless(::mkdir(path.c_str(), 0777) == 0);
}

std::string makeFifo(const fs::path& path) {
  return errorUnless(::mkfifo(path.c_str(), 0666) == 0);
}

std::string makeSocket(const fs::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.string().size() >= sizeof address.sun_path) return "the path is too long";
  std::strcpy(address.sun_path, path.c_str());
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int result =
      ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const std::string error = errorUnless(result == 0);
  ::close(descriptor);
  return error;
}

class NoStore : public StoreTest, public ::testing::WithParamInterface<Thing> {};

INSTANTIATE_TEST_SUITE_P(
    , NoStore,
    ::testing::Values(Thing{"Directory", makeDirectory}, Thing{"Fifo", makeFifo},
                      Thing{"Socket", makeSocket}, device("NullDevice", 3), device("ZeroDevice", 5),
                      linkTo("LinkToAStore", "target", sampleLog().bytes()),
                      linkTo("LinkToADirectory", ".", ""), linkTo("LinkToNothing", "target", ""),
                      linkTo("LinkToItself", "metadata.db", ""),
                      fileWith("Text", "just a text file\n"), fileWith("OneLetter", "x"),
                      fileWith("OtherVersion", "KELPKV2\n" + sampleLog().bytes().substr(8)),
                      fileWith("OtherEndOfMagic", "KELPKV1\r"),
                      fileWith("NoMagic", sampleLog().bytes().substr(8)),
                      fileWith("TwoStores", sampleLog().bytes() + sampleLog().bytes()),
                      fileWith("MagicInTheMiddle", " " + sampleLog().bytes())),
    [](const auto& instance) { return instance.param.name; });

TEST_P(NoStore, IsNotReadyAndLeftAsItIs) {
  if (const std::string reason = GetParam().make(file()); !reason.empty()) {
    GTEST_SKIP() << "cannot be made here: " << reason;
  }
  const bool regular = fs::is_regular_file(fs::symlink_status(file()));
  const std::string content = regular ? readFile(file()) : "";
  const auto entries = entriesOf(directory().path());
  const struct stat before = statusOf(file());
  for (const unsigned long options : {0UL, 1UL, 4UL, 8UL, kReportOptions}) {
    SCOPED_TRACE("options " + std::to_string(options));
    KeyValueStore store = open(options);
    expectNotReady(store);
  }
  EXPECT_TRUE(unchanged(before, statusOf(file())));
  EXPECT_EQ(entriesOf(directory().path()), entries);
  if (regular) {
    EXPECT_EQ(readFile(file()), content);
  }
}

using NoStoreLink = StoreTest;

TEST_F(NoStoreLink, LeavesTheStoreItLeadsToAlone) {
  writeFile(directory() / "target", sampleLog().bytes());
  fs::create_symlink("target", file());
  KeyValueStore store = open();
  expectNotReady(store);
  EXPECT_EQ(readFile(directory() / "target"), sampleLog().bytes());
}

TEST_F(NoStoreLink, InTheDirectorysPathIsFollowed) {
  fs::create_directory(directory() / "real");
  fs::create_directory_symlink("real", directory() / "link");
  KeyValueStore store = openStore(directory() / "link" / "metadata.db");
  EXPECT_TRUE(store.set("key", "value"));
  EXPECT_EQ(openStore(directory() / "real" / "metadata.db").get("key"), "value");
}

class NoStorePath : public StoreTest, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(, NoStorePath,
                         ::testing::Values("missing/metadata.db", "file/metadata.db", "a/b/c",
                                           "directory/", "file/"));

TEST_P(NoStorePath, ThatCannotHoldAFileIsNotReadyAndMakesNothing) {
  writeFile(directory() / "file", "");
  fs::create_directory(directory() / "directory");
  KeyValueStore store = openStore(directory() / GetParam());
  expectNotReady(store);
  EXPECT_EQ(entriesOf(directory().path()), (std::vector<std::string>{"directory", "file"}));
  EXPECT_EQ(entriesOf(directory() / "directory"), std::vector<std::string>());
}

TEST_F(StoreTest, OnAnEmptyOrEndlessPathIsNotReady) {
  KeyValueStore empty("", "metadata", KeyValueStore::Options::fromValue(kReportOptions));
  expectNotReady(empty);
  KeyValueStore endless = openStore(directory() / std::string(300, 'n'));
  expectNotReady(endless);
  KeyValueStore deep = openStore(directory() / (std::string(5000, '/') + "metadata.db"));
  expectNotReady(deep);
}

TEST_F(StoreTest, OnAPathWithANulIsNotTheOneUpToIt) {
  writeFile(file(), sampleLog().bytes());
  KeyValueStore store = openStore(file().native() + std::string("\0more", 5));
  expectNotReady(store);
  EXPECT_EQ(entriesOf(directory().path()), std::vector<std::string>{"metadata.db"});
}

}  // namespace
}  // namespace KELP::Test
