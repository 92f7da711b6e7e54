// The operating-system side of MFile: opening, atomic replacement of the target, file names;
// and the memory twin's own operations.
#include "FileIOTestSupport.h"

#include <KelSDK/FileIO/MFile.h>

#include <gtest/gtest.h>

#include <filesystem>

#if !defined(_WIN32)
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#endif

using KelSDK::FileIO::MFile;
using KelSDK::FileIO::MMemoryFile;
using KelTest::Bytes;

namespace
{
const Bytes kOld = {'o', 'l', 'd'};

void WriteNew(MFile& file)
{
    const char text[] = "new content";
    EXPECT_TRUE(file.WRITE(text, sizeof(text) - 1));
}
} // namespace

TEST(MFileOpen, MissingFileDirectoryAndEmptyNameFail)
{
    KelTest::ScratchDir dir;
    MFile file;
    EXPECT_FALSE(file.OPEN_READ(dir.Wide("missing.bin")));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.GetStatus(), MFile::StatusOpenFailed);
    EXPECT_EQ(file.GetName(), dir.Wide("missing.bin"));

    // A directory is not a file to read.
    EXPECT_FALSE(file.OPEN_READ(dir.Wide("")));
    EXPECT_EQ(file.GetStatus(), MFile::StatusOpenFailed);
    // No directory to put the file in.
    EXPECT_FALSE(file.OPEN_WRITE(dir.Wide("no/such/dir.bin")));
    EXPECT_FALSE(file.OPEN_ASCII_WRITE(std::wstring()));
    EXPECT_FALSE(file.OPEN_READ(static_cast<const wchar_t*>(nullptr)));
    EXPECT_FALSE(file.IsOpenForWriting());
    EXPECT_TRUE(dir.List().empty());

    // Nothing is open: every operation fails with a status.
    int value = 3;
    EXPECT_FALSE(file.READ(&value, 1));
    EXPECT_EQ(value, 0);
    EXPECT_FALSE(file.WRITE(&value, 1));
    EXPECT_FALSE(file.Seek(0));
    EXPECT_FALSE(file.FPRINTF("x"));
}

TEST(MFileOpen, ReopeningClosesThePreviousFile)
{
    KelTest::ScratchDir dir;
    // One object writes, reads back, writes again: a buffer larger than the write block, and
    // payloads on both sides of it.
    MFile file(200000);
    std::vector<uint32_t> values(37500);
    for (size_t i = 0; i < values.size(); ++i)
    {
        values[i] = static_cast<uint32_t>(i * 7919u);
    }
    ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("a.bin")));
    WriteNew(file);
    EXPECT_TRUE(file.WRITE(values.data(), values.size()));
    ASSERT_TRUE(file.OPEN_READ(dir.Wide("a.bin"))); // the write is committed first
    EXPECT_TRUE(file.IsOpenForReading());
    EXPECT_EQ(file.GetSize(), 11 + 150000);
    char text[11] = {};
    EXPECT_TRUE(file.READ(text, 11));
    EXPECT_EQ(std::string(text, 11), "new content");
    std::vector<uint32_t> back(values.size());
    EXPECT_TRUE(file.READ(back.data(), back.size()));
    EXPECT_EQ(back, values);
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(file.IsOpen());
    EXPECT_TRUE(file.Close()); // closing twice is harmless

    ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("a.bin")));
    EXPECT_TRUE(file.WRITE_STRING("short"));
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(KelTest::ReadWholeText(dir.Path() / "a.bin"), "short");
}

TEST(MFileAtomicWrite, TargetChangesOnlyOnClose)
{
    KelTest::ScratchDir dir;
    KelTest::WriteWholeFile(dir.Path() / "mesh.bin", kOld);
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("mesh.bin")));
        WriteNew(file);
        EXPECT_TRUE(file.Flush());
        // The bytes sit in a temporary sibling; the target is untouched.
        EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / "mesh.bin"), kOld);
        EXPECT_EQ(dir.List().size(), 2u);
        EXPECT_TRUE(file.Close());
    }
    EXPECT_EQ(KelTest::ReadWholeText(dir.Path() / "mesh.bin"), "new content");
    EXPECT_EQ(dir.List(), std::vector<std::string>{"mesh.bin"});

    // Destroying a file without an error commits it like Close.
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("other.bin")));
        WriteNew(file);
    }
    EXPECT_EQ(KelTest::ReadWholeText(dir.Path() / "other.bin"), "new content");
    EXPECT_EQ(dir.List().size(), 2u);
}

TEST(MFileAtomicWrite, AbandonedOrFailedWritesLeaveTheOldFile)
{
    KelTest::ScratchDir dir;
    KelTest::WriteWholeFile(dir.Path() / "mesh.bin", kOld);
    {
        MFile file(4);
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("mesh.bin")));
        WriteNew(file);
        file.Abandon();
        EXPECT_FALSE(file.IsOpen());
    }
    EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / "mesh.bin"), kOld);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"mesh.bin"});

    // An error during the write: Close reports it and does not replace the target.
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("mesh.bin")));
        WriteNew(file);
        int value = 0;
        EXPECT_FALSE(file.READ(&value, 1));
        EXPECT_FALSE(file.Close());
        EXPECT_EQ(file.GetStatus(), MFile::StatusNotOpen);
    }
    EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / "mesh.bin"), kOld);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"mesh.bin"});

    // Destroyed while holding an error, even a cleared one.
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_ASCII_WRITE(dir.Wide("mesh.bin")));
        WriteNew(file);
        EXPECT_FALSE(file.Seek(1000));
        file.ClearError();
    }
    EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / "mesh.bin"), kOld);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"mesh.bin"});

    // A new file that is abandoned never appears.
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("fresh.bin")));
        WriteNew(file);
        file.Abandon();
    }
    EXPECT_EQ(dir.List(), std::vector<std::string>{"mesh.bin"});
}

TEST(MFileAtomicWrite, TwoWritersToOneTargetUseSeparateTemporaries)
{
    KelTest::ScratchDir dir;
    MFile first;
    MFile second;
    ASSERT_TRUE(first.OPEN_WRITE(dir.Wide("t.bin")));
    ASSERT_TRUE(second.OPEN_WRITE(dir.Wide("t.bin")));
    EXPECT_EQ(dir.List().size(), 2u);
    EXPECT_TRUE(first.WRITE_STRING("first"));
    EXPECT_TRUE(second.WRITE_STRING("second"));
    EXPECT_TRUE(first.Close());
    EXPECT_TRUE(second.Close());
    // The last one closed wins, whole.
    EXPECT_EQ(KelTest::ReadWholeText(dir.Path() / "t.bin"), "second");
    EXPECT_EQ(dir.List().size(), 1u);
}

#if !defined(_WIN32)
TEST(MFileAtomicWrite, ReplacementKeepsThePermissionBits)
{
    KelTest::ScratchDir dir;
    KelTest::WriteWholeFile(dir.Path() / "p.bin", kOld);
    const std::string path = (dir.Path() / "p.bin").string();
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    MFile file;
    ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("p.bin")));
    WriteNew(file);
    ASSERT_TRUE(file.Close());
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
}

TEST(MFileAtomicWrite, AFailingDiskWriteKeepsTheOldFile)
{
    // A file size limit makes the operating system refuse the write (EFBIG), as a full disk would.
    KelTest::ScratchDir dir;
    KelTest::WriteWholeFile(dir.Path() / "mesh.bin", kOld);
    struct rlimit previous;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &previous), 0);
    if (previous.rlim_max != RLIM_INFINITY && previous.rlim_max < 8192)
    {
        GTEST_SKIP() << "file size limit already below the test's";
    }
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = previous;
    limited.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    bool wrote = true;
    bool closed = true;
    int status = 0;
    {
        MFile file(1024);
        EXPECT_TRUE(file.OPEN_WRITE(dir.Wide("mesh.bin")));
        const std::vector<double> values(2000, 1.0);
        wrote = file.WRITE(values.data(), values.size());
        closed = file.Close();
        status = file.GetStatus();
    }
    setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_FALSE(wrote);
    EXPECT_FALSE(closed);
    EXPECT_EQ(status, MFile::StatusWriteFailed);
    EXPECT_EQ(KelTest::ReadWholeFile(dir.Path() / "mesh.bin"), kOld);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"mesh.bin"});
}

TEST(MFileAtomicWrite, WritingThroughASymbolicLinkUpdatesTheLinkedFile)
{
    KelTest::ScratchDir dir;
    std::filesystem::create_directory(dir.Path() / "real");
    KelTest::WriteWholeFile(dir.Path() / "real" / "mesh.bin", kOld);
    std::error_code error;
    std::filesystem::create_symlink(dir.Path() / "real" / "mesh.bin", dir.Path() / "link.bin", error);
    if (error)
    {
        GTEST_SKIP() << "cannot create a symbolic link here: " << error.message();
    }
    MFile file;
    ASSERT_TRUE(file.OPEN_WRITE(dir.Wide("link.bin")));
    WriteNew(file);
    ASSERT_TRUE(file.Close());
    EXPECT_TRUE(std::filesystem::is_symlink(dir.Path() / "link.bin"));
    EXPECT_EQ(KelTest::ReadWholeText(dir.Path() / "real" / "mesh.bin"), "new content");
    EXPECT_EQ(dir.List().size(), 2u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path() / "real"),
                            std::filesystem::directory_iterator()),
              1);
}
#endif

TEST(MFileNames, NonAsciiNamesAreUtf8OnDisk)
{
    KelTest::ScratchDir dir;
    const std::string full = (dir.Path() / "m").string();
    const std::wstring name = std::wstring(full.begin(), full.end() - 1) + L"m\u00e9sh_\u6f22\U0001F600.bin";
    {
        MFile file;
        ASSERT_TRUE(file.OPEN_WRITE(name));
        const double value = 2.5;
        EXPECT_TRUE(file.WRITE(&value, 1));
        EXPECT_EQ(file.GetName(), name);
        EXPECT_TRUE(file.Close());
    }
    const auto utf8Name = std::filesystem::u8path("m\xc3\xa9sh_\xe6\xbc\xa2\xf0\x9f\x98\x80.bin");
    EXPECT_TRUE(std::filesystem::exists(dir.Path() / utf8Name));
    EXPECT_EQ(dir.List().size(), 1u);
    MFile file;
    ASSERT_TRUE(file.OPEN_READ(name.c_str()));
    double value = 0;
    EXPECT_TRUE(file.READ(&value, 1));
    EXPECT_EQ(value, 2.5);
}

TEST(MFileNames, RelativeNamesWork)
{
    KelTest::ScratchDir dir;
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path());
    {
        MFile file;
        EXPECT_TRUE(file.OPEN_WRITE(L"relative.bin"));
        EXPECT_TRUE(file.WRITE_STRING("r"));
        EXPECT_TRUE(file.Close());
        EXPECT_TRUE(file.OPEN_READ(L"relative.bin"));
        EXPECT_EQ(file.GetSize(), 1);
    }
    std::filesystem::current_path(previous);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"relative.bin"});
}

TEST(MMemoryFile, DataIsCompleteAfterFlushAndCanBePatched)
{
    MMemoryFile file;
    EXPECT_TRUE(file.GetData().empty());
    ASSERT_TRUE(file.OpenWrite());
    EXPECT_TRUE(file.IsOpenForWriting());
    const uint32_t values[2] = {1, 2};
    EXPECT_TRUE(file.WRITE(values, 2));
    EXPECT_TRUE(file.Flush());
    EXPECT_EQ(file.GetData(), (Bytes{1, 0, 0, 0, 2, 0, 0, 0}));
    EXPECT_TRUE(file.Seek(2));
    const uint16_t patch = 0xBBAA;
    EXPECT_TRUE(file.WRITE(&patch, 1));
    EXPECT_EQ(file.Tell(), 4);
    EXPECT_EQ(file.GetSize(), 8);
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(file.GetData(), (Bytes{1, 0, 0xAA, 0xBB, 2, 0, 0, 0}));
    EXPECT_EQ(file.TakeData().size(), 8u);
    EXPECT_TRUE(file.GetData().empty());
}

TEST(MMemoryFile, ReadsCopiesAndMovedVectors)
{
    std::vector<uint8_t> source = {0x10, 0x20, 0x30};
    MMemoryFile file;
    ASSERT_TRUE(file.OpenRead(source.data(), source.size()));
    source[0] = 0; // the file read from its own copy
    unsigned char byte = 0;
    EXPECT_TRUE(file.READ(&byte, 1));
    EXPECT_EQ(byte, 0x10);
    EXPECT_EQ(file.GetRemaining(), 2);

    ASSERT_TRUE(file.OpenRead(std::vector<uint8_t>{7, 8}));
    EXPECT_EQ(file.GetSize(), 2);
    EXPECT_EQ(file.Tell(), 0);
    uint16_t word = 0;
    EXPECT_TRUE(file.READ(&word, 1));
    EXPECT_EQ(word, 0x0807);

    EXPECT_TRUE(file.OpenRead(nullptr, 0));
    EXPECT_FALSE(file.READ(&byte, 1));
    EXPECT_FALSE(file.OpenRead(nullptr, 5));
    EXPECT_EQ(file.GetStatus(), MFile::StatusOpenFailed);
}

TEST(MMemoryFile, NamedOpensThroughTheBaseInterface)
{
    MMemoryFile memory;
    MFile& file = memory;
    // A named write keeps the name and writes to memory; a named read has no bytes to read.
    ASSERT_TRUE(file.OPEN_WRITE(L"virtual.bin"));
    EXPECT_TRUE(file.WRITE_STRING("abc"));
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(memory.GetData(), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(file.GetName(), L"virtual.bin");
    EXPECT_FALSE(file.OPEN_READ(L"virtual.bin"));
    EXPECT_EQ(file.GetStatus(), MFile::StatusNotSupported);

    ASSERT_TRUE(memory.OpenWrite());
    EXPECT_TRUE(file.WRITE_STRING("zzz"));
    file.Abandon();
    EXPECT_TRUE(memory.GetData().empty());
}
