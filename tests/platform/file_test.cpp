#include "platform/filesys/file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/system/error.h"
#include "tests/support/tempdir.h"

using namespace Platform;
using Services::Filesystem::Client::File;

namespace {

class FileTest : public testing::Test {
 protected:
    std::string at(const std::string& name) const { return _directory.file(name); }
    std::string make(const std::string& name, const std::string& content) const {
        HiveTest::writeFile(at(name), {content.begin(), content.end()});
        return at(name);
    }
    static Ref<File> open(const std::string& path, u32 flags) {
        Error::set(0);
        return File::open(String::fromUtf8(path), flags);
    }
    static std::string content(const std::string& path) {
        const std::vector<u8> bytes = HiveTest::readFile(path);
        return {bytes.begin(), bytes.end()};
    }

 private:
    const HiveTest::TempDir _directory;
};

TEST_F(FileTest, OpenRefusesWhatIsNoFileOrNoKnownMode) {
    const std::string file = make("file", "x");
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    struct {
        std::string path;
        u32 flags;
        u32 error;
    } const cases[] = {
        {file, File::openRead, 0x8446},
        {file, File::openFile | File::openWrite, 0x8446},
        {file + std::string("\0x", 2), File::readAny, 0x8446},
        {"", File::readAny, 0x20000 + ENOENT},
        {at("missing"), File::readExisting, 0x20000 + ENOENT},
        {at("missing"), File::readWriteExisting, 0x20000 + ENOENT},
        {at("no/such"), File::writeOrCreate, 0x20000 + ENOENT},
        {at(""), File::readExisting, 0x20000 + EISDIR},
        {at(""), File::readWriteExisting, 0x20000 + EISDIR},
        {at("pipe"), File::readExisting, 0x20000 + ENOTSUP},  // must not wait for a writer
        {"/dev/null", File::readExisting, 0x20000 + ENOTSUP},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(open(c.path, c.flags)) << c.path << " " << c.flags;
        EXPECT_EQ(Error::get(), c.error) << c.path << " " << c.flags;
    }
    EXPECT_FALSE(std::filesystem::exists(at("missing")));
}

TEST_F(FileTest, WritesAndReadsAtItsOwnPosition) {
    const std::string path = at("gr\xC3\xB6\xC3\x9F");
    const Ref<File> file = open(path, File::writeOrCreate);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->write(ShPtr::fromConst("0123456789"), 10), 10u);
    EXPECT_EQ(file->seek(4), 4u);
    char buffer[20] = {};
    Error::set(0x77);
    EXPECT_EQ(file->read(ShPtr(buffer), 20), 6u);
    EXPECT_EQ(std::string(buffer), "456789");
    EXPECT_EQ(file->read(ShPtr(buffer), 20), 0u);
    EXPECT_EQ(Error::get(), 0x77u) << "the end is no failure";
    EXPECT_EQ(file->seek(1000), 10u);
    EXPECT_EQ(file->setElementCount(12), 12u);
    EXPECT_EQ(file->pos(), 10u);
    EXPECT_EQ(file->setElementCount(3), 3u);
    EXPECT_EQ(file->pos(), 3u);
    EXPECT_EQ(content(path), "012");
}

TEST_F(FileTest, ShrinkingFileGivesShortReads) {
    const std::string path = make("file", std::string(10000, 'a'));
    const Ref<File> file = open(path, File::readExisting);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->seek(4000), 4000u);
    ASSERT_EQ(::truncate(path.c_str(), 4100), 0);
    std::string buffer(6000, '\0');
    EXPECT_EQ(file->read(ShPtr(buffer.data()), buffer.size()), 100u);
    ASSERT_EQ(::truncate(path.c_str(), 100), 0);
    EXPECT_EQ(file->read(ShPtr(buffer.data()), buffer.size()), 0u);
    EXPECT_EQ(Error::get(), 0u);
}

TEST_F(FileTest, FailedCallsSetTheSystemErrorAndChangeNothing) {
    const std::string path = make("file", "abc");
    // An address the system cannot reach stands for any failing transfer.
    const ShPtr nowhere(reinterpret_cast<void*>(8));
    for (const u32 flags : {File::readExisting, File::readAny, File::readWriteExisting}) {
        const bool writable = flags == File::readWriteExisting;
        const Ref<File> file = open(path, flags);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->write(writable ? nowhere : ShPtr::fromConst("x"), 1), 0u);
        EXPECT_EQ(Error::get(), 0x20000u + (writable ? EFAULT : EBADF));
        EXPECT_EQ(file->read(nowhere, 3), 0u);
        EXPECT_EQ(Error::get(), 0x20000u + EFAULT);
        EXPECT_EQ(file->pos(), 0u);
        EXPECT_EQ(file->setElementCount(writable ? file->maxElementCount() + 1 : 1), 3u);
        EXPECT_EQ(Error::get(), 0x20000u + (writable ? EFBIG : EBADF));
        EXPECT_EQ(content(path), "abc");
    }
}

TEST_F(FileTest, SecondWriterIsRefusedUntilTheFirstIsGone) {
    const std::string path = make("file", "abc");
    Ref<File> first = open(path, File::readWriteExisting);
    ASSERT_TRUE(first);
    for (const u32 flags : {File::readWriteExisting, File::writeOrCreate}) {
        EXPECT_FALSE(open(path, flags));
        EXPECT_EQ(Error::get(), 0x20000u + EWOULDBLOCK);
    }
    EXPECT_TRUE(open(path, File::readExisting)) << "readers are not held off";
    first.reset();
    EXPECT_TRUE(open(path, File::writeOrCreate));
    EXPECT_EQ(content(path), "abc") << "opening must not truncate";
}

}  // namespace
