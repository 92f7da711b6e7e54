// The operating-system side of MFile: opening, atomic replacement of the target, file names;
// and the memory twin's own operations.
#include "FileIOTestSupport.h"
#include "support/FileSizeLimit.h"

#include <KelSDK/FileIO/MFile.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

using KelSDK::FileIO::MFile;
using KelSDK::FileIO::MMemoryFile;
using KelTest::Bytes;
using Names = std::vector<std::string>;

namespace
{
const Bytes kOld = {'o', 'l', 'd'};

void WriteNew(MFile& file)
{
    EXPECT_TRUE(file.WRITE("new content", 11));
}
} // namespace

TEST(MFileOpen, FailuresAndReopening)
{
    KelTest::ScratchDir dir;
    MFile file(200000); // a buffer larger than the write block
    EXPECT_FALSE(file.OPEN_READ(dir.Wide("missing.bin")));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.GetStatus(), MFile::StatusOpenFailed);
    EXPECT_EQ(file.GetSystemError(), std::errc::no_such_file_or_directory);
    EXPECT_FALSE(file.OPEN_READ(dir.Wide(""))); // a directory
    EXPECT_EQ(file.GetStatus(), MFile::StatusOpenFailed);
    EXPECT_EQ(file.GetSystemError(), std::errc::is_a_directory);
    EXPECT_FALSE(file.OPEN_WRITE(dir.Wide("no/such/dir.bin")));
    EXPECT_EQ(file.GetSystemError(), std::errc::no_such_file_or_directory) << "a missing output folder";
    EXPECT_FALSE(file.OPEN_ASCII_WRITE(std::wstring()));
    EXPECT_FALSE(file.OPEN_READ(static_cast<const wchar_t*>(nullptr)));
    EXPECT_FALSE(file.IsOpenForWriting());
    EXPECT_TRUE(dir.List().empty());
    int value = 3; // nothing is open: every operation fails
    EXPECT_FALSE(file.READ(&value, 1));
    EXPECT_EQ(value, 0);
    EXPECT_FALSE(file.WRITE(&value, 1));
    EXPECT_FALSE(file.Seek(0));
    EXPECT_FALSE(file.FPRINTF("x"));

    // Opening for reading commits the write in progress; payloads on both sides of the write block.
    std::vector<uint32_t> values(37500), back(37500);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<uint32_t>(i * 7919u);
    ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("a.bin")));
    EXPECT_FALSE(file.GetSystemError()) << "an open forgets the previous failure";
    WriteNew(file);
    EXPECT_TRUE(file.WRITE(values.data(), values.size()));
    ASSERT_TRUE(file.OPEN_READ(dir.Wide("a.bin")));
    EXPECT_EQ(file.GetSize(), 11 + 150000);
    char text[11] = {};
    EXPECT_TRUE(file.READ(text, 11));
    EXPECT_TRUE(file.READ(back.data(), back.size()));
    EXPECT_EQ(std::string(text, 11), "new content");
    EXPECT_EQ(back, values);
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(file.Close()); // closing twice is harmless
    ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("a.bin")));
    EXPECT_TRUE(file.WRITE_STRING("short"));
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / "a.bin"), (Bytes{'s', 'h', 'o', 'r', 't'}));
}

TEST(MFileAtomicWrite, TargetChangesOnlyOnCloseAndNeverAfterAnError)
{
    KelTest::ScratchDir dir;
    const auto target = dir.Path() / "mesh.bin";
    KelTest::WriteWholeFile(target, kOld);
    {
        MFile file, second;
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("mesh.bin")));
        WriteNew(file);
        EXPECT_TRUE(file.Flush());
        EXPECT_EQ(KelTest::ReadWholeFile(target), kOld); // the bytes sit in a temporary sibling
        // A second writer to the same target has its own temporary; the last one closed wins.
        ASSERT_TRUE(second.OPEN_WRITE(dir.Wide("mesh.bin")));
        EXPECT_TRUE(second.WRITE_STRING("second"));
        EXPECT_EQ(dir.List().size(), 3u);
        EXPECT_TRUE(file.Close());
        EXPECT_TRUE(second.Close());
    }
    EXPECT_EQ(KelTest::ReadWholeFile(target), (Bytes{'s', 'e', 'c', 'o', 'n', 'd'}));
    // Abandoned, failed (Close reports it), or destroyed holding an error even a cleared one: the
    // old file stays, a new one never appears.
    for (int failure = 0; failure < 3; ++failure)
    {
        for (const char* name : {"mesh.bin", "fresh.bin"})
        {
            {
                MFile file(4);
                int value = 0;
                ASSERT_TRUE(file.OPEN_ASCII_WRITE(dir.Wide(name)));
                WriteNew(file);
                if (failure == 0)
                    file.Abandon();
                EXPECT_EQ(failure == 1 ? file.READ(&value, 1) || file.Close()
                                       : failure == 2 && file.Seek(1000),
                          false);
                EXPECT_EQ(file.GetStatus(), failure == 1   ? MFile::StatusNotOpen
                                            : failure == 2 ? MFile::StatusSeekFailed
                                                           : 0);
                EXPECT_EQ(file.IsOpen(), failure == 2);
                file.ClearError();
            }
            EXPECT_EQ(KelTest::ReadWholeFile(target), (Bytes{'s', 'e', 'c', 'o', 'n', 'd'}));
            EXPECT_EQ(dir.List(), Names{"mesh.bin"});
        }
    }
    // Destroying a file without an error commits it like Close.
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("mesh.bin")));
        WriteNew(file);
    }
    EXPECT_EQ(KelTest::ReadWholeFile(target), (Bytes{'n', 'e', 'w', ' ', 'c', 'o', 'n', 't', 'e', 'n', 't'}));
}

#if !defined(_WIN32)
TEST(MFileAtomicWrite, AFailingDiskWriteKeepsTheOldFile)
{
    // A file size limit makes the operating system refuse the write (EFBIG), as a full disk would.
    KelTest::ScratchDir dir;
    KelTest::WriteWholeFile(dir.Path() / "mesh.bin", kOld);
    bool opened = false, wrote = false, closed = false;
    MFile file(1024);
    {
        const KelTestSupport::FileSizeLimit limit(4096);
        if (!limit.Active())
            GTEST_SKIP() << "file size limit already below the test's";
        const std::vector<double> values(2000, 1.0);
        opened = file.OPEN_WRITE(dir.Wide("mesh.bin"));
        wrote = file.WRITE(values.data(), values.size());
        closed = file.Close();
    }
    EXPECT_TRUE(opened);
    EXPECT_FALSE(wrote);
    EXPECT_FALSE(closed);
    EXPECT_EQ(file.GetStatus(), MFile::StatusWriteFailed);
    EXPECT_EQ(file.GetSystemError(), std::errc::file_too_large);
    EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / "mesh.bin"), kOld);
    EXPECT_EQ(dir.List(), Names{"mesh.bin"});
}

TEST(MFileAtomicWrite, ReplacementKeepsPermissionsAndSymbolicLinks)
{
    KelTest::ScratchDir dir;
    std::filesystem::create_directory(dir.Path() / "real");
    const auto real = dir.Path() / "real" / "mesh.bin";
    KelTest::WriteWholeFile(real, kOld);
    ASSERT_EQ(chmod(real.c_str(), 0640), 0);
    std::error_code error;
    std::filesystem::create_symlink(real, dir.Path() / "link.bin", error);
    if (error)
        GTEST_SKIP() << "cannot create a symbolic link here: " << error.message();
    for (const char* name : {"real/mesh.bin", "link.bin"})
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide(name)));
        EXPECT_TRUE(file.WRITE_STRING(name));
        EXPECT_TRUE(file.Close());
        struct stat info;
        ASSERT_EQ(stat(real.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0640u);
        EXPECT_EQ(KelTest::ReadWholeFile(real), Bytes(name, name + std::strlen(name)));
    }
    EXPECT_TRUE(std::filesystem::is_symlink(dir.Path() / "link.bin"));
    EXPECT_EQ(dir.List().size(), 2u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path() / "real"), {}), 1);
}
#endif

TEST(MFileNames, NonAsciiAndRelativeNames)
{
    KelTest::ScratchDir dir;
    const std::wstring name = dir.Wide("") + L"m\u00e9sh_\u6f22\U0001F600.bin";
    {
        MFile file;
        const double value = 2.5;
        ASSERT_TRUE(file.OPEN_WRITE(name));
        EXPECT_TRUE(file.WRITE(&value, 1));
        EXPECT_EQ(file.GetName(), name);
        EXPECT_TRUE(file.Close());
    }
    const auto utf8Name = std::filesystem::u8path("m\xc3\xa9sh_\xe6\xbc\xa2\xf0\x9f\x98\x80.bin");
    EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / utf8Name), (Bytes{0, 0, 0, 0, 0, 0, 4, 0x40}));
    MFile file;
    double value = 0;
    ASSERT_TRUE(file.OPEN_READ(name.c_str()));
    EXPECT_TRUE(file.READ(&value, 1));
    EXPECT_EQ(value, 2.5);
    // A name without a directory part: its temporary goes beside it in the working directory.
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path());
    EXPECT_TRUE(file.OPEN_WRITE(L"relative.bin"));
    EXPECT_TRUE(file.WRITE_STRING("r"));
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(file.OPEN_READ(L"relative.bin"));
    EXPECT_EQ(file.GetSize(), 1);
    std::filesystem::current_path(previous);
    EXPECT_EQ(dir.List().size(), 2u);
}

TEST(MMemoryFile, FlushCopiesNamedOpensAndAbandon)
{
    MMemoryFile file;
    MFile& base = file;
    const uint32_t values[2] = {1, 2};
    ASSERT_TRUE(file.OpenWrite());
    EXPECT_TRUE(file.WRITE(values, 2));
    EXPECT_TRUE(file.Flush());
    EXPECT_EQ(file.TakeData(), (Bytes{1, 0, 0, 0, 2, 0, 0, 0})); // complete after Flush
    EXPECT_TRUE(file.GetData().empty());
    std::vector<uint8_t> source = {0x10, 0x20, 0x30};
    ASSERT_TRUE(file.OpenRead(source.data(), source.size()));
    source[0] = 0; // the file reads from its own copy
    unsigned char byte = 0;
    EXPECT_TRUE(file.READ(&byte, 1));
    EXPECT_EQ(byte, 0x10);
    EXPECT_TRUE(file.OpenRead(nullptr, 0));
    EXPECT_FALSE(file.READ(&byte, 1));
    EXPECT_FALSE(file.OpenRead(nullptr, 5));
    EXPECT_EQ(file.GetStatus(), MFile::StatusOpenFailed);
    // Through the base interface a named write goes to memory; a named read has no bytes.
    ASSERT_TRUE(base.OPEN_WRITE(L"virtual.bin"));
    EXPECT_TRUE(base.WRITE_STRING("abc"));
    EXPECT_TRUE(base.Close());
    EXPECT_EQ(file.GetData(), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(base.GetName(), L"virtual.bin");
    EXPECT_FALSE(base.OPEN_READ(L"virtual.bin"));
    EXPECT_EQ(base.GetStatus(), MFile::StatusNotSupported);
    ASSERT_TRUE(file.OpenWrite());
    EXPECT_TRUE(base.WRITE_STRING("zzz"));
    base.Abandon();
    EXPECT_TRUE(file.GetData().empty());
}
