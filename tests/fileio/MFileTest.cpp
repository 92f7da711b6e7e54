// Byte encodings of MFile's typed operations, read back by their twins, on every backend: memory,
// a real file with a 5-byte buffer (every value crosses a buffer boundary), and a real file with
// the default buffer.
#include "FileIOTestSupport.h"

#include <KelSDK/FileIO/MFile.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

using KelSDK::FileIO::MFile;
using KelSDK::FileIO::MMemoryFile;
using KelTest::Bytes;

namespace
{
enum class Backend
{
    Memory,
    DiskTinyBuffer,
    Disk
};

class MFileEncoding : public testing::TestWithParam<Backend>
{
protected:
    int64_t BufferSize() const { return GetParam() == Backend::DiskTinyBuffer ? 5 : 1 << 16; }

    // Runs fn on a file opened for writing and returns the bytes of the closed file (nothing for
    // a disk file whose Close failed: it was never created).
    Bytes Write(const std::function<void(MFile&)>& fn, bool closes = true)
    {
        if (GetParam() == Backend::Memory)
        {
            MMemoryFile file;
            EXPECT_TRUE(file.OpenWrite());
            fn(file);
            EXPECT_EQ(file.Close(), closes);
            return file.GetData();
        }
        const std::wstring name = dir_.Wide("written.bin");
        {
            MFile file(BufferSize());
            EXPECT_TRUE(file.OPEN_WRITE(name));
            fn(file);
            EXPECT_EQ(file.Close(), closes);
        }
        return KelTest::ReadWholeFile(dir_.Path() / "written.bin");
    }

    // Runs fn on a file opened for reading the given bytes.
    void Read(const Bytes& bytes, const std::function<void(MFile&)>& fn)
    {
        if (GetParam() == Backend::Memory)
        {
            MMemoryFile file;
            ASSERT_TRUE(file.OpenRead(bytes.data(), bytes.size()));
            fn(file);
            return;
        }
        KelTest::WriteWholeFile(dir_.Path() / "read.bin", bytes);
        MFile file(BufferSize());
        ASSERT_TRUE(file.OPEN_READ(dir_.Wide("read.bin")));
        EXPECT_EQ(file.GetSize(), static_cast<int64_t>(bytes.size()));
        fn(file);
    }

    KelTest::ScratchDir dir_;
};

std::string Name(const testing::TestParamInfo<Backend>& info)
{
    switch (info.param)
    {
    case Backend::Memory:
        return "Memory";
    case Backend::DiskTinyBuffer:
        return "DiskTinyBuffer";
    default:
        return "Disk";
    }
}

} // namespace

TEST_P(MFileEncoding, ScalarTypesAreLittleEndianAndReadBack)
{
    const bool flags[2] = {true, false};
    const char letter = 'A';
    const signed char sbyte = -2;
    const unsigned char ubyte = 0xAB;
    const short s16 = -2;
    const unsigned short u16 = 0x1234;
    const int s32 = -123456789;
    const unsigned int u32 = 0xDEADBEEFu;
    const long long s64 = -2;
    const uint64_t u64 = 0x0102030405060708u;
    const float floats[2] = {1.0f, -2.5f};
    const double doubles[2] = {1.0, -0.1};

    const Bytes bytes = Write(
        [&](MFile& f)
        {
            EXPECT_TRUE(f.WRITE(flags, 2));
            EXPECT_TRUE(f.WRITE(&letter, 1));
            EXPECT_TRUE(f.WRITE(&sbyte, 1));
            EXPECT_TRUE(f.WRITE(&ubyte, 1));
            EXPECT_TRUE(f.WRITE(&s16, 1));
            EXPECT_TRUE(f.WRITE(&u16, 1));
            EXPECT_TRUE(f.WRITE(&s32, 1));
            EXPECT_TRUE(f.WRITE(&u32, 1));
            EXPECT_TRUE(f.WRITE(&s64, 1));
            EXPECT_TRUE(f.WRITE(&u64, 1));
            EXPECT_TRUE(f.WRITE(floats, 2));
            EXPECT_TRUE(f.WRITE(doubles, 2));
            EXPECT_EQ(f.Tell(), 2 + 3 + 4 + 8 + 16 + 8 + 16);
        });
    const Bytes expected = {
        0x01, 0x00,                                     // bool true, false
        0x41, 0xFE, 0xAB,                               // 'A', -2, 0xAB
        0xFE, 0xFF, 0x34, 0x12,                         // short -2, 0x1234
        0xEB, 0x32, 0xA4, 0xF8, 0xEF, 0xBE, 0xAD, 0xDE, // -123456789, 0xDEADBEEF
        0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, // long long -2
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01, // 0x0102030405060708
        0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0, // 1.0f, -2.5f
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F, // 1.0
        0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0xBF, // -0.1
    };
    EXPECT_EQ(bytes, expected);

    Read(expected,
         [&](MFile& f)
         {
             bool rflags[2] = {false, true};
             char rletter = 0;
             signed char rsbyte = 0;
             unsigned char rubyte = 0;
             short rs16 = 0;
             unsigned short ru16 = 0;
             int rs32 = 0;
             unsigned int ru32 = 0;
             long long rs64 = 0;
             uint64_t ru64 = 0;
             float rfloats[2] = {};
             double rdoubles[2] = {};
             EXPECT_TRUE(f.READ(rflags, 2));
             EXPECT_TRUE(f.READ(&rletter, 1));
             EXPECT_TRUE(f.READ(&rsbyte, 1));
             EXPECT_TRUE(f.READ(&rubyte, 1));
             EXPECT_TRUE(f.READ(&rs16, 1));
             EXPECT_TRUE(f.READ(&ru16, 1));
             EXPECT_TRUE(f.READ(&rs32, 1));
             EXPECT_TRUE(f.READ(&ru32, 1));
             EXPECT_TRUE(f.READ(&rs64, 1));
             EXPECT_TRUE(f.READ(&ru64, 1));
             EXPECT_TRUE(f.READ(rfloats, 2));
             EXPECT_TRUE(f.READ(rdoubles, 2));
             EXPECT_TRUE(rflags[0]);
             EXPECT_FALSE(rflags[1]);
             EXPECT_EQ(rletter, letter);
             EXPECT_EQ(rsbyte, sbyte);
             EXPECT_EQ(rubyte, ubyte);
             EXPECT_EQ(rs16, s16);
             EXPECT_EQ(ru16, u16);
             EXPECT_EQ(rs32, s32);
             EXPECT_EQ(ru32, u32);
             EXPECT_EQ(rs64, s64);
             EXPECT_EQ(ru64, u64);
             EXPECT_EQ(rfloats[1], floats[1]);
             EXPECT_EQ(rdoubles[1], doubles[1]);
             EXPECT_EQ(f.GetRemaining(), 0);
             EXPECT_EQ(f.GetStatus(), 0);
         });
}

TEST_P(MFileEncoding, AnyNonZeroByteReadsAsTrue)
{
    Read({0x00, 0x01, 0x02, 0xFF},
         [](MFile& f)
         {
             bool values[4] = {true, false, false, false};
             ASSERT_TRUE(f.READ(values, 4));
             EXPECT_FALSE(values[0]);
             EXPECT_TRUE(values[1]);
             EXPECT_TRUE(values[2]);
             EXPECT_TRUE(values[3]);
         });
}

TEST_P(MFileEncoding, Int16AndInt32Words)
{
    const uint16_t u16[2] = {0x8001, 0x00FF};
    const int16_t s16 = -300;
    const uint32_t u32 = 0x11223344u;
    const int32_t s32[2] = {-1, 0x7FFFFFFF};
    const Bytes bytes = Write(
        [&](MFile& f)
        {
            EXPECT_TRUE(f.WriteInt16(u16, 2));
            EXPECT_TRUE(f.WriteInt16(&s16, 1));
            EXPECT_TRUE(f.WriteInt32(&u32, 1));
            EXPECT_TRUE(f.WriteInt32(s32, 2));
        });
    const Bytes expected = {0x01, 0x80, 0xFF, 0x00, 0xD4, 0xFE, 0x44, 0x33, 0x22,
                            0x11, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F};
    EXPECT_EQ(bytes, expected);
    Read(expected,
         [&](MFile& f)
         {
             uint16_t ru16[2] = {};
             int16_t rs16 = 0;
             uint32_t ru32 = 0;
             int32_t rs32[2] = {};
             EXPECT_TRUE(f.ReadInt16(ru16, 2));
             EXPECT_TRUE(f.ReadInt16(&rs16, 1));
             EXPECT_TRUE(f.ReadInt32(&ru32, 1));
             EXPECT_TRUE(f.ReadInt32(rs32, 2));
             EXPECT_EQ(ru16[0], u16[0]);
             EXPECT_EQ(ru16[1], u16[1]);
             EXPECT_EQ(rs16, s16);
             EXPECT_EQ(ru32, u32);
             EXPECT_EQ(rs32[0], s32[0]);
             EXPECT_EQ(rs32[1], s32[1]);
         });
}

TEST_P(MFileEncoding, StringDataIsCountThenBytes)
{
    const Bytes bytes = Write(
        [](MFile& f)
        {
            EXPECT_TRUE(f.WRITE_STRING_DATA("abc"));
            EXPECT_TRUE(f.WRITE_STRING_DATA(""));
            EXPECT_TRUE(f.WRITE_STRING_DATA(std::string("x\0y", 3)));
            EXPECT_TRUE(f.WRITE_STRING("plain"));
        });
    const Bytes expected = {0x03, 0x00, 0x00, 0x00, 'a', 'b', 'c', 0x00, 0x00, 0x00, 0x00, 0x03,
                            0x00, 0x00, 0x00, 'x',  0,   'y', 'p', 'l',  'a',  'i',  'n'};
    EXPECT_EQ(bytes, expected);
    Read(expected,
         [](MFile& f)
         {
             std::string text = "previous";
             EXPECT_TRUE(f.READ_STRING_DATA(text));
             EXPECT_EQ(text, "abc");
             EXPECT_TRUE(f.READ_STRING_DATA(text));
             EXPECT_EQ(text, "");
             EXPECT_TRUE(f.READ_STRING_DATA(text));
             EXPECT_EQ(text, std::string("x\0y", 3));
             EXPECT_EQ(f.GetRemaining(), 5);
         });
}

TEST_P(MFileEncoding, RawWideStringsAreUtf16WithSurrogatePairs)
{
    // U+1F600 is beyond the BMP: D83D DE00 in UTF-16.
    const Bytes bytes = Write(
        [](MFile& f)
        {
            EXPECT_TRUE(f.WRITE_STRING_RAW(L"A\u00e9\U0001F600"));
            EXPECT_TRUE(f.WRITE_STRING_RAW(L""));
            EXPECT_TRUE(f.WRITE_STRING_RAW(L"\u6f22"));
        });
    const Bytes expected = {0x04, 0x00, 0x00, 0x00, 0x41, 0x00, 0xE9, 0x00, 0x3D, 0xD8, 0x00,
                            0xDE, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x22, 0x6F};
    EXPECT_EQ(bytes, expected);
    Read(expected,
         [](MFile& f)
         {
             std::wstring text = L"previous";
             EXPECT_TRUE(f.READ_STRING_RAW(text));
             EXPECT_EQ(text, L"A\u00e9\U0001F600");
             EXPECT_TRUE(f.READ_STRING_RAW(text));
             EXPECT_EQ(text, L"");
             EXPECT_TRUE(f.READ_STRING_RAW(text));
             EXPECT_EQ(text, L"\u6f22");
         });
}

TEST_P(MFileEncoding, LongWideStringsCrossTheConversionBlocks)
{
    // 3000 characters, every third one beyond the BMP: 4000 UTF-16 units, and pairs that straddle
    // the reader's and writer's internal blocks.
    std::wstring text;
    for (int i = 0; i < 3000; ++i)
    {
        text += i % 3 == 2 ? static_cast<wchar_t>(0x10000 + i) : static_cast<wchar_t>(L'a' + i % 26);
    }
    const Bytes bytes = Write([&](MFile& f) { EXPECT_TRUE(f.WRITE_STRING_RAW(text.c_str())); });
    ASSERT_EQ(bytes.size(), 4u + 2u * 4000u);
    EXPECT_EQ(bytes[0] | bytes[1] << 8, 4000);
    Read(bytes,
         [&](MFile& f)
         {
             std::wstring back;
             EXPECT_TRUE(f.READ_STRING_RAW(back));
             EXPECT_EQ(back, text);
         });
}

TEST_P(MFileEncoding, LoneSurrogatesReadAsTheirCodeUnits)
{
    const Bytes bytes = {0x05, 0x00, 0x00, 0x00,              // five units:
                         0x00, 0xD8, 0x41, 0x00,              // high surrogate, then 'A'
                         0x00, 0xDC,                          // low surrogate alone
                         0x3D, 0xD8, 0x00, 0xDE,              // a proper pair
                         0x01, 0x00, 0x00, 0x00, 0x01, 0xD8}; // one unit: a trailing high surrogate
    Read(bytes,
         [](MFile& f)
         {
             std::wstring text;
             EXPECT_TRUE(f.READ_STRING_RAW(text));
             if constexpr (sizeof(wchar_t) == 4)
             {
                 EXPECT_EQ(text, (std::wstring{wchar_t(0xD800), L'A', wchar_t(0xDC00), wchar_t(0x1F600)}));
             }
             else
             {
                 EXPECT_EQ(text.size(), 5u);
             }
             EXPECT_TRUE(f.READ_STRING_RAW(text));
             EXPECT_EQ(text, std::wstring(1, wchar_t(0xD801)));
         });
}

TEST_P(MFileEncoding, ByteArraysUseTheNarrowestWidth)
{
    struct Case
    {
        std::vector<uint32_t> values;
        Bytes bytes;
    };
    const Case cases[] = {
        {{}, {0x01}},
        {{0, 0}, {0x01, 0x00, 0x00}},
        {{1, 255}, {0x01, 0x01, 0xFF}},
        {{256, 1}, {0x02, 0x00, 0x01, 0x01, 0x00}},
        {{0xFFFF}, {0x02, 0xFF, 0xFF}},
        {{0x10000, 5}, {0x03, 0x00, 0x00, 0x01, 0x05, 0x00, 0x00}},
        {{0xABCDEF, 0}, {0x03, 0xEF, 0xCD, 0xAB, 0x00, 0x00, 0x00}},
        {{0x1000000, 7}, {0x04, 0x00, 0x00, 0x00, 0x01, 0x07, 0x00, 0x00, 0x00}},
        {{0xFFFFFFFFu}, {0x04, 0xFF, 0xFF, 0xFF, 0xFF}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::PrintToString(c.values));
        EXPECT_EQ(
            Write([&](MFile& f) { EXPECT_TRUE(f.WRITE_AS_BYTE_ARRAY(c.values.data(), c.values.size())); }),
            c.bytes);
        Read(c.bytes,
             [&](MFile& f)
             {
                 std::vector<uint32_t> back(c.values.size(), 0xAAAAAAAAu);
                 EXPECT_TRUE(f.READ_AS_BYTE_ARRAY(back.data(), back.size()));
                 EXPECT_EQ(back, c.values);
                 EXPECT_EQ(f.GetRemaining(), 0);
             });
    }
}

TEST_P(MFileEncoding, LongByteArraysRoundTripAtEveryWidth)
{
    for (uint32_t top : {200u, 60000u, 16000000u, 4000000000u})
    {
        std::vector<uint32_t> values(5000);
        for (size_t i = 0; i < values.size(); ++i)
        {
            values[i] = static_cast<uint32_t>((i * 2654435761u) % top);
        }
        values[4321] = top;
        const Bytes bytes =
            Write([&](MFile& f) { EXPECT_TRUE(f.WRITE_AS_BYTE_ARRAY(values.data(), values.size())); });
        const size_t width = bytes.at(0);
        EXPECT_EQ(bytes.size(), 1 + width * values.size());
        Read(bytes,
             [&](MFile& f)
             {
                 std::vector<uint32_t> back(values.size());
                 EXPECT_TRUE(f.READ_AS_BYTE_ARRAY(back.data(), back.size()));
                 EXPECT_EQ(back, values);
             });
    }
}

TEST_P(MFileEncoding, BadByteArrayWidthZeroFillsAndFails)
{
    for (uint8_t width : {0, 5, 0xFF})
    {
        Read({width, 1, 2, 3, 4, 5, 6, 7, 8},
             [](MFile& f)
             {
                 uint32_t values[2] = {0xAAAAAAAAu, 0xAAAAAAAAu};
                 EXPECT_FALSE(f.READ_AS_BYTE_ARRAY(values, 2));
                 EXPECT_EQ(values[0], 0u);
                 EXPECT_EQ(values[1], 0u);
                 EXPECT_EQ(f.GetStatus(), MFile::StatusBadData);
             });
    }
    // A byte array cut short: the values that are there, zeros for the rest.
    Read({0x02, 0x34, 0x12, 0x78},
         [](MFile& f)
         {
             uint32_t values[3] = {9, 9, 9};
             EXPECT_FALSE(f.READ_AS_BYTE_ARRAY(values, 3));
             EXPECT_EQ(values[0], 0x1234u);
             EXPECT_EQ(values[1], 0x78u);
             EXPECT_EQ(values[2], 0u);
             EXPECT_EQ(f.GetStatus(), MFile::StatusReadPastEnd);
         });
}

TEST_P(MFileEncoding, TruncatedReadZeroFillsAndTheErrorSticks)
{
    // Six bytes: one float and half of the next.
    Read({0x00, 0x00, 0x80, 0x3F, 0x11, 0x22},
         [](MFile& f)
         {
             float values[3] = {7.0f, 7.0f, 7.0f};
             EXPECT_FALSE(f.READ(values, 3));
             EXPECT_EQ(values[0], 1.0f);
             unsigned char raw[4];
             std::memcpy(raw, &values[1], 4);
             EXPECT_EQ(raw[0], 0x11);
             EXPECT_EQ(raw[1], 0x22);
             EXPECT_EQ(raw[2], 0x00);
             EXPECT_EQ(raw[3], 0x00);
             EXPECT_EQ(values[2], 0.0f);
             EXPECT_TRUE(f.HasError());
             EXPECT_EQ(f.GetStatus(), MFile::StatusReadPastEnd);
             EXPECT_EQ(f.GetRemaining(), 0);

             // Sticky: a later read at the end fails again, the status stays the first one.
             uint32_t more = 5;
             EXPECT_FALSE(f.READ(&more, 1));
             EXPECT_EQ(more, 0u);
             EXPECT_TRUE(f.Seek(0));
             EXPECT_TRUE(f.READ(&more, 1));
             EXPECT_EQ(f.GetStatus(), MFile::StatusReadPastEnd);
             f.ClearError();
             EXPECT_FALSE(f.HasError());
             // Close still remembers that a read failed.
             EXPECT_FALSE(f.Close());
         });
    Read({},
         [](MFile& f)
         {
             double value = 3.0;
             EXPECT_FALSE(f.READ(&value, 1));
             EXPECT_EQ(value, 0.0);
             bool flag = true;
             EXPECT_FALSE(f.READ(&flag, 1));
             EXPECT_FALSE(flag);
         });
}

TEST_P(MFileEncoding, CountsBeyondTheFileAreRefusedBeforeAllocating)
{
    // A narrow string claiming 0xFFFFFFF0 bytes with two behind it.
    Read({0xF0, 0xFF, 0xFF, 0xFF, 'a', 'b'},
         [](MFile& f)
         {
             std::string text = "old";
             EXPECT_FALSE(f.READ_STRING_DATA(text));
             EXPECT_TRUE(text.empty());
             EXPECT_LT(text.capacity(), 1000u);
             EXPECT_EQ(f.GetStatus(), MFile::StatusBadData);
         });
    // One byte too many: five bytes claimed, four present.
    Read({0x05, 0x00, 0x00, 0x00, 'a', 'b', 'c', 'd'},
         [](MFile& f)
         {
             std::string text;
             EXPECT_FALSE(f.READ_STRING_DATA(text));
             EXPECT_EQ(f.GetStatus(), MFile::StatusBadData);
         });
    // Exactly enough is fine.
    Read({0x04, 0x00, 0x00, 0x00, 'a', 'b', 'c', 'd'},
         [](MFile& f)
         {
             std::string text;
             EXPECT_TRUE(f.READ_STRING_DATA(text));
             EXPECT_EQ(text, "abcd");
         });
    // A wide string claiming 3 units (6 bytes) with 5 bytes behind it, and one claiming 2^32-1.
    Read({0x03, 0x00, 0x00, 0x00, 'a', 0, 'b', 0, 'c'},
         [](MFile& f)
         {
             std::wstring text = L"old";
             EXPECT_FALSE(f.READ_STRING_RAW(text));
             EXPECT_TRUE(text.empty());
             EXPECT_EQ(f.GetStatus(), MFile::StatusBadData);
         });
    Read({0xFF, 0xFF, 0xFF, 0xFF, 'a', 0},
         [](MFile& f)
         {
             std::wstring text;
             EXPECT_FALSE(f.READ_STRING_RAW(text));
             EXPECT_LT(text.capacity(), 1000u);
         });
    // The count itself cut short.
    Read({0x01, 0x00},
         [](MFile& f)
         {
             std::string text;
             EXPECT_FALSE(f.READ_STRING_DATA(text));
             EXPECT_EQ(f.GetStatus(), MFile::StatusReadPastEnd);
         });
}

TEST_P(MFileEncoding, SeekBackPatchAndContinue)
{
    // The pattern of a framed section: placeholder, payload, patch the placeholder with the end.
    std::vector<uint16_t> payload(1001);
    std::iota(payload.begin(), payload.end(), uint16_t{1});
    const Bytes bytes = Write(
        [&](MFile& f)
        {
            const unsigned char tag = 0xC2;
            EXPECT_TRUE(f.WRITE(&tag, 1));
            const int64_t placeholder = f.Tell();
            const uint32_t zero = 0;
            EXPECT_TRUE(f.WRITE(&zero, 1));
            EXPECT_TRUE(f.WRITE(payload.data(), payload.size()));
            const int64_t end = f.Tell();
            EXPECT_EQ(end, 1 + 4 + 2002);
            EXPECT_TRUE(f.Seek(placeholder));
            const uint32_t endValue = static_cast<uint32_t>(end);
            EXPECT_TRUE(f.WRITE(&endValue, 1));
            EXPECT_EQ(f.Tell(), 5);
            EXPECT_EQ(f.GetSize(), end);
            EXPECT_TRUE(f.Seek(end));
            const unsigned char last = 0xC3;
            EXPECT_TRUE(f.WRITE(&last, 1));
            EXPECT_EQ(f.GetSize(), end + 1);
        });
    ASSERT_EQ(bytes.size(), 1u + 4u + 2002u + 1u);
    EXPECT_EQ(bytes[0], 0xC2);
    EXPECT_EQ(bytes[1], (2007 & 0xFF));
    EXPECT_EQ(bytes[2], (2007 >> 8));
    EXPECT_EQ(bytes[3], 0);
    EXPECT_EQ(bytes[4], 0);
    EXPECT_EQ(bytes[5], 1);
    EXPECT_EQ(bytes[6], 0);
    EXPECT_EQ(bytes[2005], 1001 & 0xFF);
    EXPECT_EQ(bytes[2006], 1001 >> 8);
    EXPECT_EQ(bytes[2007], 0xC3);

    Read(bytes,
         [&](MFile& f)
         {
             unsigned char tag = 0;
             uint32_t end = 0;
             EXPECT_TRUE(f.READ(&tag, 1));
             EXPECT_TRUE(f.READ(&end, 1));
             EXPECT_TRUE(f.Seek(end));
             EXPECT_TRUE(f.READ(&tag, 1));
             EXPECT_EQ(tag, 0xC3);
             EXPECT_TRUE(f.Seek(3));
             uint16_t value = 7;
             EXPECT_TRUE(f.READ(&value, 1));
             EXPECT_EQ(value, 0);
             EXPECT_TRUE(f.Seek(2005));
             EXPECT_EQ(f.Tell(), 2005);
             EXPECT_EQ(f.GetRemaining(), 3);
             EXPECT_TRUE(f.READ(&value, 1));
             EXPECT_EQ(value, 1001);
             EXPECT_EQ(f.GetStatus(), 0);
         });
}

TEST_P(MFileEncoding, SeeksOutsideTheFileFail)
{
    Read({1, 2, 3},
         [](MFile& f)
         {
             EXPECT_TRUE(f.Seek(3));
             EXPECT_FALSE(f.Seek(4));
             EXPECT_EQ(f.GetStatus(), MFile::StatusSeekFailed);
             EXPECT_FALSE(f.Seek(-1));
             // The position is unchanged by a failed seek.
             EXPECT_EQ(f.Tell(), 3);
         });
    // Writing: up to the bytes written so far; a failed seek makes the whole write fail.
    const Bytes bytes = Write(
        [](MFile& f)
        {
            const uint32_t value = 1;
            EXPECT_TRUE(f.WRITE(&value, 1));
            EXPECT_TRUE(f.Seek(0));
            EXPECT_FALSE(f.Seek(5));
            EXPECT_EQ(f.GetStatus(), MFile::StatusSeekFailed);
            f.ClearError();
        },
        false);
    EXPECT_EQ(bytes.empty(), GetParam() != Backend::Memory);
}

TEST_P(MFileEncoding, LargeArraysCrossTheBufferAtOddOffsets)
{
    // Odd-sized chunks of doubles after a one-byte lead, some larger than the buffer.
    std::vector<double> values(70000);
    for (size_t i = 0; i < values.size(); ++i)
    {
        values[i] = static_cast<double>(i) * 0.5 - 1000.25;
    }
    const size_t chunks[] = {1, 3, 7, 13, 4099, 9000, 1, 8191, 8193, 30000};
    const Bytes bytes = Write(
        [&](MFile& f)
        {
            const unsigned char lead = 0x5A;
            EXPECT_TRUE(f.WRITE(&lead, 1));
            size_t at = 0;
            for (size_t chunk : chunks)
            {
                EXPECT_TRUE(f.WRITE(values.data() + at, chunk));
                at += chunk;
            }
            EXPECT_TRUE(f.WRITE(values.data() + at, values.size() - at));
        });
    ASSERT_EQ(bytes.size(), 1 + values.size() * 8);
    double check = 0;
    std::memcpy(&check, bytes.data() + 1 + 8 * 12345, 8);
    EXPECT_EQ(check, values[12345]);

    Read(bytes,
         [&](MFile& f)
         {
             unsigned char lead = 0;
             EXPECT_TRUE(f.READ(&lead, 1));
             EXPECT_EQ(lead, 0x5A);
             std::vector<double> back(values.size());
             // Read back in a different chunking than written.
             size_t at = 0;
             for (size_t chunk : {5u, 9000u, 2u, 16385u, 11u})
             {
                 EXPECT_TRUE(f.READ(back.data() + at, chunk));
                 at += chunk;
             }
             EXPECT_TRUE(f.READ(back.data() + at, back.size() - at));
             EXPECT_EQ(back, values);
             EXPECT_EQ(f.GetRemaining(), 0);
             EXPECT_EQ(f.GetStatus(), 0);
         });
}

TEST_P(MFileEncoding, WrongDirectionFailsWithoutTouchingTheFile)
{
    const Bytes bytes = Write(
        [](MFile& f)
        {
            const int value = 5;
            EXPECT_TRUE(f.WRITE(&value, 1));
            int back = 9;
            EXPECT_FALSE(f.READ(&back, 1));
            EXPECT_EQ(back, 0);
            EXPECT_EQ(f.GetStatus(), MFile::StatusNotOpen);
            EXPECT_EQ(f.GetRemaining(), 0);
            f.ClearError();
        },
        false);
    // The failed read made the write fail: a disk write is not committed, memory keeps its bytes.
    if (GetParam() == Backend::Memory)
    {
        EXPECT_EQ(bytes, (Bytes{5, 0, 0, 0}));
    }
    Read({1, 2, 3, 4},
         [](MFile& f)
         {
             const int value = 5;
             EXPECT_FALSE(f.WRITE(&value, 1));
             EXPECT_FALSE(f.FPRINTF("%d", 1));
             EXPECT_EQ(f.GetStatus(), MFile::StatusNotOpen);
             int back = 0;
             EXPECT_TRUE(f.READ(&back, 1));
             EXPECT_EQ(back, 0x04030201);
         });
}

TEST_P(MFileEncoding, EveryPrefixAndBitFlipEndsDefined)
{
    const std::vector<uint32_t> packed = {1, 70000, 3};
    const Bytes bytes = Write(
        [&](MFile& f)
        {
            const unsigned char tag = 7;
            const double value = -1.5;
            f.WRITE(&tag, 1);
            f.WRITE_STRING_DATA("name");
            f.WRITE_STRING_RAW(L"w\U0001F600");
            f.WRITE_AS_BYTE_ARRAY(packed.data(), packed.size());
            f.WRITE(&value, 1);
        });
    // Reads the whole sequence; true if every step succeeded.
    auto readAll = [](MFile& f)
    {
        unsigned char tag = 0;
        std::string text;
        std::wstring wide;
        uint32_t values[3];
        double value = 0;
        bool ok = f.READ(&tag, 1);
        ok = f.READ_STRING_DATA(text) && ok;
        ok = f.READ_STRING_RAW(wide) && ok;
        ok = f.READ_AS_BYTE_ARRAY(values, 3) && ok;
        ok = f.READ(&value, 1) && ok;
        return ok;
    };
    for (size_t length = 0; length <= bytes.size(); ++length)
    {
        Read(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)),
             [&](MFile& f)
             {
                 const bool ok = readAll(f);
                 EXPECT_EQ(ok, length == bytes.size()) << length;
                 EXPECT_EQ(f.HasError(), !ok) << length;
             });
    }
    for (size_t bit = 0; bit < bytes.size() * 8; bit += 3)
    {
        Bytes flipped = bytes;
        flipped[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        Read(flipped,
             [&](MFile& f)
             {
                 const bool ok = readAll(f);
                 EXPECT_EQ(f.HasError(), !ok) << bit;
                 EXPECT_LE(f.Tell(), static_cast<int64_t>(flipped.size()));
             });
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, MFileEncoding,
                         testing::Values(Backend::Memory, Backend::DiskTinyBuffer, Backend::Disk), Name);
