#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/filesys/file.h"
#include "platform/system/error.h"
#include "tests/support/tempdir.h"

using namespace Platform;
using Services::Filesystem::Client::File;

namespace {

class FileTest : public testing::Test {
 protected:
    FileTest() { HiveTest::writeFile(path, {'a', 'b', 'c'}); }
    std::string at(const std::string& name) const { return _directory.file(name); }
    static Ref<File> open(const std::string& name, u32 flags) {
        Error::set(0);
        return File::open(String::fromUtf8(name), flags);
    }
    std::string content() const {
        const std::vector<u8> bytes = HiveTest::readFile(path);
        return {bytes.begin(), bytes.end()};
    }

 private:
    const HiveTest::TempDir _directory;

 protected:
    const std::string path = at("gr\xC3\xB6\xC3\x9F");
};

TEST_F(FileTest, OpenRefusesWhatIsNoFileOrNoKnownMode) {
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    struct {
        std::string name;
        u32 flags;
        u32 error;
    } const cases[] = {
        {path, File::openRead, 0x8446},
        {path, File::openFile | File::openWrite, 0x8446},
        {path + std::string("\0x", 2), File::readAny, 0x8446},
        {at("missing"), File::readExisting, 0x20000 + ENOENT},
        {at("missing"), File::readWriteExisting, 0x20000 + ENOENT},
        {at("no/such"), File::writeOrCreate, 0x20000 + ENOENT},
        {at(""), File::readExisting, 0x20000 + EISDIR},
        {at(""), File::readWriteExisting, 0x20000 + EISDIR},
        {at("pipe"), File::readExisting, 0x20000 + ENOTSUP},  // must not wait for a writer
        {"/dev/null", File::readExisting, 0x20000 + ENOTSUP},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(open(c.name, c.flags)) << c.name << " " << c.flags;
        EXPECT_EQ(Error::get(), c.error) << c.name << " " << c.flags;
    }
    EXPECT_FALSE(std::filesystem::exists(at("missing")));
    const Ref<File> first = open(path, File::readWriteExisting);
    for (const u32 flags : {File::readWriteExisting, File::writeOrCreate}) {
        EXPECT_FALSE(open(path, flags)) << "a second writer";
        EXPECT_EQ(Error::get(), 0x20000u + EWOULDBLOCK);
    }
    EXPECT_TRUE(open(path, File::readExisting)) << "readers are not held off";
}

TEST_F(FileTest, WritesAndReadsAtItsOwnPosition) {
    const Ref<File> file = open(path, File::writeOrCreate);
    ASSERT_TRUE(file);
    EXPECT_EQ(content(), "abc") << "opening must not truncate";
    EXPECT_EQ(file->write(ShPtr::fromConst("0123456789"), 10), 10u);
    EXPECT_EQ(file->seek(4), 4u);
    char buffer[20] = {};
    Error::set(0x77);
    EXPECT_EQ(file->read(ShPtr(buffer), 20), 6u);
    EXPECT_EQ(std::string(buffer), "456789");
    EXPECT_EQ(file->seek(1000), 10u);
    EXPECT_EQ(file->setElementCount(12), 12u);
    EXPECT_EQ(file->pos(), 10u);
    EXPECT_EQ(file->setElementCount(3), 3u);
    EXPECT_EQ(file->pos(), 3u);
    EXPECT_EQ(content(), "012");
    ASSERT_EQ(::truncate(path.c_str(), 1), 0);
    EXPECT_EQ(file->read(ShPtr(buffer), 20), 0u) << "it shrank under us";
    EXPECT_EQ(Error::get(), 0x77u) << "the end is no failure";
}

TEST_F(FileTest, FailedCallsSetTheSystemErrorAndChangeNothing) {
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
        EXPECT_EQ(content(), "abc");
    }
}

}  // namespace
