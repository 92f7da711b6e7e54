// Byte encodings of MFile's typed operations, read back by their twins, on every backend: memory,
// a real file with a 5-byte buffer (every value crosses a buffer boundary), and the default buffer.
#include "FileIOTestSupport.h"

#include <KelSDK/FileIO/MFile.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <numeric>

using KelSDK::FileIO::MFile;
using KelSDK::FileIO::MMemoryFile;
using KelTest::Bytes;

namespace
{
// The parameter is the buffer size of a disk file, 0 for a memory file.
class MFileEncoding : public testing::TestWithParam<int>
{
protected:
    // Runs fn on a file opened for writing; the bytes of the closed file.
    Bytes Write(const std::function<void(MFile&)>& fn)
    {
        MMemoryFile memory;
        MFile disk(GetParam());
        MFile& file = Memory() ? memory : disk;
        EXPECT_TRUE(Memory() ? memory.OpenWrite() : disk.OPEN_WRITE(dir_.Wide("written.bin")));
        fn(file);
        EXPECT_TRUE(file.Close());
        return Memory() ? memory.GetData() : KelTest::ReadWholeFile(dir_.Path() / "written.bin");
    }

    // A file open for reading the given bytes.
    std::unique_ptr<MFile> Open(const Bytes& bytes)
    {
        const std::string name = "read" + std::to_string(++opened_) + ".bin";
        std::unique_ptr<MFile> file =
            Memory() ? std::make_unique<MMemoryFile>() : std::make_unique<MFile>(GetParam());
        if (!Memory())
            KelTest::WriteWholeFile(dir_.Path() / name, bytes);
        EXPECT_TRUE(Memory() ? static_cast<MMemoryFile&>(*file).OpenRead(bytes.data(), bytes.size())
                             : file->OPEN_READ(dir_.Wide(name)));
        EXPECT_EQ(file->GetSize(), static_cast<int64_t>(bytes.size()));
        return file;
    }

    bool Memory() const { return GetParam() == 0; }
    KelTest::ScratchDir dir_;
    int opened_ = 0;
};

// One value of every scalar type READ/WRITE take, then 16- and 32-bit words.
struct Scalars
{
    bool flags[2] = {true, false};
    char letter = 'A';
    signed char sbyte = -2;
    unsigned char ubyte = 0xAB;
    short s16 = -2;
    unsigned short u16 = 0x1234;
    int s32 = -123456789;
    unsigned int u32 = 0xDEADBEEFu;
    long long s64 = -2;
    uint64_t u64 = 0x0102030405060708u;
    float floats[2] = {1.0f, -2.5f};
    double doubles[2] = {1.0, -0.1};
    uint16_t w16[2] = {0x8001, 0x00FF};
    int32_t w32[2] = {-1, 0x7FFFFFFF};

    // Writes or reads every field in file order.
    void Transfer(MFile& f, bool write)
    {
        auto op = [&](auto* p, size_t n) { EXPECT_TRUE(write ? f.WRITE(p, n) : f.READ(p, n)); };
        op(flags, 2), op(&letter, 1), op(&sbyte, 1), op(&ubyte, 1), op(&s16, 1), op(&u16, 1), op(&s32, 1);
        op(&u32, 1), op(&s64, 1), op(&u64, 1), op(floats, 2), op(doubles, 2);
        EXPECT_TRUE(write ? f.WriteInt16(w16, 2) : f.ReadInt16(w16, 2));
        EXPECT_TRUE(write ? f.WriteInt32(w32, 2) : f.ReadInt32(w32, 2));
    }
};
} // namespace

TEST_P(MFileEncoding, ScalarTypesAndWordsAreLittleEndianAndReadBack)
{
    const Bytes expected = {
        0x01, 0x00, 0x41, 0xFE, 0xAB,                   // bool true, false; 'A', -2, 0xAB
        0xFE, 0xFF, 0x34, 0x12,                         // short -2, 0x1234
        0xEB, 0x32, 0xA4, 0xF8, 0xEF, 0xBE, 0xAD, 0xDE, // -123456789, 0xDEADBEEF
        0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, // long long -2
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01, // 0x0102030405060708
        0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0, // 1.0f, -2.5f
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F, // 1.0
        0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0xBF, // -0.1
        0x01, 0x80, 0xFF, 0x00,                         // words 0x8001, 0x00FF
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, // -1, 0x7FFFFFFF
    };
    Scalars values;
    EXPECT_EQ(Write([&](MFile& f) { values.Transfer(f, true); }), expected);
    Scalars back;
    std::memset(static_cast<void*>(&back), 0, sizeof(back));
    auto f = Open(expected);
    back.Transfer(*f, false);
    EXPECT_EQ(f->GetRemaining(), 0);
    EXPECT_EQ(f->GetStatus(), 0);
    // What was read encodes to the same bytes again.
    EXPECT_EQ(Write([&](MFile& out) { back.Transfer(out, true); }), expected);
    // Any non-zero byte reads as true.
    f = Open({0x00, 0x01, 0x02, 0xFF});
    bool flags[4] = {true, false, false, false};
    ASSERT_TRUE(f->READ(flags, 4));
    EXPECT_EQ(std::vector<bool>(flags, flags + 4), (std::vector<bool>{false, true, true, true}));
}

TEST_P(MFileEncoding, StringsAreCountThenUnitsWithSurrogatePairs)
{
    // U+1F600 is beyond the BMP: D83D DE00 in UTF-16.
    const Bytes bytes = Write(
        [](MFile& f)
        {
            EXPECT_TRUE(f.WRITE_STRING_DATA("abc"));
            EXPECT_TRUE(f.WRITE_STRING_DATA(""));
            EXPECT_TRUE(f.WRITE_STRING_DATA(std::string("x\0y", 3)));
            EXPECT_TRUE(f.WRITE_STRING_RAW(L"A\u00e9\U0001F600"));
            EXPECT_TRUE(f.WRITE_STRING_RAW(L""));
            EXPECT_TRUE(f.WRITE_STRING_RAW(L"\u6f22"));
            EXPECT_TRUE(f.WRITE_STRING("plain"));
        });
    const Bytes expected = {0x03, 0x00, 0x00, 0x00, 'a',  'b',  'c',  0x00, 0x00, 0x00, 0x00, 0x03,
                            0x00, 0x00, 0x00, 'x',  0,    'y',  0x04, 0x00, 0x00, 0x00, 0x41, 0x00,
                            0xE9, 0x00, 0x3D, 0xD8, 0x00, 0xDE, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00,
                            0x00, 0x00, 0x22, 0x6F, 'p',  'l',  'a',  'i',  'n'};
    EXPECT_EQ(bytes, expected);
    auto f = Open(expected);
    std::string text = "previous";
    for (const std::string& want : {std::string("abc"), std::string(), std::string("x\0y", 3)})
    {
        EXPECT_TRUE(f->READ_STRING_DATA(text));
        EXPECT_EQ(text, want);
    }
    std::wstring wide = L"previous";
    for (const wchar_t* want : {L"A\u00e9\U0001F600", L"", L"\u6f22"})
    {
        EXPECT_TRUE(f->READ_STRING_RAW(wide));
        EXPECT_EQ(wide, want);
    }
    EXPECT_EQ(f->GetRemaining(), 5);
    // Lone surrogates read as their code units: high then 'A', a lone low, a pair; a trailing high.
    f = Open({0x05, 0x00, 0x00, 0x00, 0x00, 0xD8, 0x41, 0x00, 0x00, 0xDC,
              0x3D, 0xD8, 0x00, 0xDE, 0x01, 0x00, 0x00, 0x00, 0x01, 0xD8});
    EXPECT_TRUE(f->READ_STRING_RAW(wide));
    if constexpr (sizeof(wchar_t) == 4)
    {
        EXPECT_EQ(wide, (std::wstring{wchar_t(0xD800), L'A', wchar_t(0xDC00), wchar_t(0x1F600)}));
    }
    EXPECT_EQ(wide.size(), sizeof(wchar_t) == 4 ? 4u : 5u);
    EXPECT_TRUE(f->READ_STRING_RAW(wide));
    EXPECT_EQ(wide, std::wstring(1, wchar_t(0xD801)));
    // 3000 characters, every third beyond the BMP: 4000 units, pairs straddling the conversion blocks.
    std::wstring longText;
    for (int i = 0; i < 3000; ++i)
        longText += i % 3 == 2 ? static_cast<wchar_t>(0x10000 + i) : static_cast<wchar_t>(L'a' + i % 26);
    const Bytes longBytes = Write([&](MFile& f) { EXPECT_TRUE(f.WRITE_STRING_RAW(longText.c_str())); });
    ASSERT_EQ(longBytes.size(), 4u + 2u * 4000u);
    EXPECT_EQ(longBytes[0] | longBytes[1] << 8, 4000);
    f = Open(longBytes);
    EXPECT_TRUE(f->READ_STRING_RAW(wide));
    EXPECT_EQ(wide, longText);
}

TEST_P(MFileEncoding, ByteArraysUseTheNarrowestWidthAndRejectOthers)
{
    // Values written and read back, their bytes, the read's status (a failed read zero-fills).
    const std::tuple<std::vector<uint32_t>, Bytes, int> cases[] = {
        {{}, {0x01}, 0},
        {{0, 0}, {0x01, 0x00, 0x00}, 0},
        {{1, 255}, {0x01, 0x01, 0xFF}, 0},
        {{256, 1}, {0x02, 0x00, 0x01, 0x01, 0x00}, 0},
        {{0xFFFF}, {0x02, 0xFF, 0xFF}, 0},
        {{0x10000, 5}, {0x03, 0x00, 0x00, 0x01, 0x05, 0x00, 0x00}, 0},
        {{0xABCDEF, 0}, {0x03, 0xEF, 0xCD, 0xAB, 0x00, 0x00, 0x00}, 0},
        {{0x1000000, 7}, {0x04, 0x00, 0x00, 0x00, 0x01, 0x07, 0x00, 0x00, 0x00}, 0},
        {{0xFFFFFFFFu}, {0x04, 0xFF, 0xFF, 0xFF, 0xFF}, 0},
        {{0, 0}, {0x00, 1, 2, 3, 4, 5, 6, 7, 8}, MFile::StatusBadData},
        {{0, 0}, {0x05, 1, 2, 3, 4, 5, 6, 7, 8}, MFile::StatusBadData},
        {{0, 0}, {0xFF, 1, 2, 3, 4, 5, 6, 7, 8}, MFile::StatusBadData},
        {{0x1234, 0x78, 0}, {0x02, 0x34, 0x12, 0x78}, MFile::StatusReadPastEnd},
    };
    for (const auto& c : cases)
    {
        const auto& [values, bytes, status] = c;
        SCOPED_TRACE(testing::PrintToString(bytes));
        const auto write = [&c](MFile& f)
        { EXPECT_TRUE(f.WRITE_AS_BYTE_ARRAY(std::get<0>(c).data(), std::get<0>(c).size())); };
        if (status == 0)
        {
            EXPECT_EQ(Write(write), bytes);
        }
        auto f = Open(bytes);
        std::vector<uint32_t> back(values.size(), 0xAAAAAAAAu);
        EXPECT_EQ(f->READ_AS_BYTE_ARRAY(back.data(), back.size()), status == 0);
        EXPECT_EQ(back, values);
        EXPECT_EQ(f->GetStatus(), status);
    }
    // 5000 values at each width: the packing crosses buffer refills.
    for (uint32_t top : {200u, 60000u, 16000000u, 4000000000u})
    {
        std::vector<uint32_t> values(5000), back(5000);
        for (size_t i = 0; i < values.size(); ++i)
            values[i] = static_cast<uint32_t>((i * 2654435761u) % top);
        values[4321] = top;
        const Bytes bytes =
            Write([&](MFile& f) { EXPECT_TRUE(f.WRITE_AS_BYTE_ARRAY(values.data(), values.size())); });
        EXPECT_EQ(bytes.size(), 1 + size_t{bytes.at(0)} * values.size());
        auto f = Open(bytes);
        EXPECT_TRUE(f->READ_AS_BYTE_ARRAY(back.data(), back.size()));
        EXPECT_EQ(back, values);
    }
}

TEST_P(MFileEncoding, TruncatedReadZeroFillsAndTheErrorSticks)
{
    // Six bytes: one float and half of the next.
    auto f = Open({0x00, 0x00, 0x80, 0x3F, 0x11, 0x22});
    float values[3] = {7.0f, 7.0f, 7.0f};
    EXPECT_FALSE(f->READ(values, 3));
    EXPECT_EQ(values[0], 1.0f);
    unsigned char raw[4];
    std::memcpy(raw, &values[1], 4);
    EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{0x11, 0x22, 0x00, 0x00}));
    EXPECT_EQ(values[2], 0.0f);
    EXPECT_TRUE(f->HasError());
    EXPECT_EQ(f->GetStatus(), MFile::StatusReadPastEnd);
    EXPECT_EQ(f->GetRemaining(), 0);
    // Sticky: a later read at the end fails again, the status stays the first one.
    uint32_t more = 5;
    EXPECT_FALSE(f->READ(&more, 1));
    EXPECT_EQ(more, 0u);
    EXPECT_TRUE(f->Seek(0));
    EXPECT_TRUE(f->READ(&more, 1));
    EXPECT_EQ(f->GetStatus(), MFile::StatusReadPastEnd);
    f->ClearError();
    EXPECT_FALSE(f->HasError());
    EXPECT_FALSE(f->Close()); // Close still remembers that a read failed
}

TEST_P(MFileEncoding, CountsBeyondTheFileAreRefusedBeforeAllocating)
{
    // The bytes, whether they hold a wide string, the read's status.
    const std::tuple<Bytes, bool, int> cases[] = {
        {{0xF0, 0xFF, 0xFF, 0xFF, 'a', 'b'}, false, MFile::StatusBadData},           // 0xFFFFFFF0 bytes
        {{0x05, 0x00, 0x00, 0x00, 'a', 'b', 'c', 'd'}, false, MFile::StatusBadData}, // one byte too many
        {{0x04, 0x00, 0x00, 0x00, 'a', 'b', 'c', 'd'}, false, 0},                    // exactly enough
        {{0x03, 0x00, 0x00, 0x00, 'a', 0, 'b', 0, 'c'}, true, MFile::StatusBadData}, // 6 bytes, 5 there
        {{0xFF, 0xFF, 0xFF, 0xFF, 'a', 0}, true, MFile::StatusBadData},              // 2^32-1 units
        {{0x01, 0x00}, false, MFile::StatusReadPastEnd},                             // the count cut short
    };
    for (const auto& [bytes, isWide, status] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(bytes));
        auto f = Open(bytes);
        std::string text = "old";
        std::wstring wide = L"old";
        EXPECT_EQ(isWide ? f->READ_STRING_RAW(wide) : f->READ_STRING_DATA(text), status == 0);
        EXPECT_EQ(f->GetStatus(), status);
        if (status == 0)
        {
            EXPECT_EQ(text, "abcd");
        }
        // A refused count leaves the string empty, without having reserved for it.
        if (status == MFile::StatusBadData)
        {
            EXPECT_EQ(isWide ? wide.size() : text.size(), 0u);
            EXPECT_LT(isWide ? wide.capacity() : text.capacity(), 1000u);
        }
    }
}

TEST_P(MFileEncoding, SeekBackPatchAndContinue)
{
    // A framed section: placeholder, payload, patch the placeholder with the end.
    std::vector<uint16_t> payload(1001);
    std::iota(payload.begin(), payload.end(), uint16_t{1});
    const Bytes bytes = Write(
        [&](MFile& f)
        {
            const unsigned char tag = 0xC2, last = 0xC3;
            const uint32_t zero = 0, end = 1 + 4 + 2002;
            EXPECT_TRUE(f.WRITE(&tag, 1));
            EXPECT_TRUE(f.WRITE(&zero, 1));
            EXPECT_TRUE(f.WRITE(payload.data(), payload.size()));
            EXPECT_EQ(f.Tell(), end);
            EXPECT_TRUE(f.Seek(1));
            EXPECT_TRUE(f.WRITE(&end, 1));
            EXPECT_EQ(f.Tell(), 5);
            EXPECT_EQ(f.GetSize(), end);
            EXPECT_TRUE(f.Seek(end));
            EXPECT_TRUE(f.WRITE(&last, 1));
            EXPECT_EQ(f.GetSize(), end + 1);
        });
    ASSERT_EQ(bytes.size(), 2008u);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 7), (Bytes{0xC2, 2007 & 0xFF, 2007 >> 8, 0, 0, 1, 0}));
    EXPECT_EQ(Bytes(bytes.begin() + 2005, bytes.end()), (Bytes{1001 & 0xFF, 1001 >> 8, 0xC3}));
    auto f = Open(bytes);
    unsigned char tag = 0;
    uint32_t end = 0;
    uint16_t value = 7;
    EXPECT_TRUE(f->READ(&tag, 1));
    EXPECT_TRUE(f->READ(&end, 1));
    EXPECT_TRUE(f->Seek(end));
    EXPECT_TRUE(f->READ(&tag, 1));
    EXPECT_EQ(tag, 0xC3);
    EXPECT_TRUE(f->Seek(3));
    EXPECT_TRUE(f->READ(&value, 1));
    EXPECT_EQ(value, 0);
    // A read file takes no writes and stays as it was.
    EXPECT_FALSE(f->WRITE(&value, 1));
    EXPECT_FALSE(f->FPRINTF("%d", 1));
    EXPECT_EQ(f->GetStatus(), MFile::StatusNotOpen);
    f->ClearError();
    EXPECT_TRUE(f->Seek(2005));
    EXPECT_EQ(f->Tell(), 2005);
    EXPECT_EQ(f->GetRemaining(), 3);
    EXPECT_TRUE(f->READ(&value, 1));
    EXPECT_EQ(value, 1001);
    EXPECT_EQ(f->GetStatus(), 0);
    // Outside the file: fails, the position stays.
    EXPECT_TRUE(f->Seek(2008));
    EXPECT_FALSE(f->Seek(2009));
    EXPECT_EQ(f->GetStatus(), MFile::StatusSeekFailed);
    EXPECT_FALSE(f->Seek(-1));
    EXPECT_EQ(f->Tell(), 2008);
}

TEST_P(MFileEncoding, LargeArraysCrossTheBufferAtOddOffsets)
{
    // Odd-sized chunks of doubles after a one-byte lead, some beyond the buffer; read in other chunks.
    std::vector<double> values(70000), back(70000);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<double>(i) * 0.5 - 1000.25;
    unsigned char lead = 0x5A;
    const Bytes bytes = Write(
        [&](MFile& f)
        {
            size_t at = 0;
            EXPECT_TRUE(f.WRITE(&lead, 1));
            for (size_t chunk : {1, 3, 7, 13, 4099, 9000, 1, 8191, 8193, 30000, 10492})
            {
                EXPECT_TRUE(f.WRITE(values.data() + at, chunk));
                at += chunk;
            }
        });
    ASSERT_EQ(bytes.size(), 1 + values.size() * 8);
    auto f = Open(bytes);
    size_t at = 0;
    EXPECT_TRUE(f->READ(&lead, 1));
    for (size_t chunk : {5, 9000, 2, 16385, 11, 44597})
    {
        EXPECT_TRUE(f->READ(back.data() + at, chunk));
        at += chunk;
    }
    EXPECT_EQ(f->GetRemaining(), 0);
    EXPECT_EQ(f->GetStatus(), 0);
    EXPECT_EQ(lead, 0x5A);
    EXPECT_EQ(back, values);
}

TEST_P(MFileEncoding, EveryPrefixAndBitFlipEndsDefined)
{
    const std::vector<uint32_t> packed = {1, 70000, 3};
    const Bytes bytes = Write(
        [&](MFile& f)
        {
            const unsigned char tag = 7;
            const double value = -1.5;
            EXPECT_TRUE(f.WRITE(&tag, 1));
            EXPECT_TRUE(f.WRITE_STRING_DATA("name"));
            EXPECT_TRUE(f.WRITE_STRING_RAW(L"w\U0001F600"));
            EXPECT_TRUE(f.WRITE_AS_BYTE_ARRAY(packed.data(), packed.size()));
            EXPECT_TRUE(f.WRITE(&value, 1));
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
        return f.READ(&value, 1) && ok;
    };
    for (size_t length = 0; length <= bytes.size(); ++length)
    {
        auto f = Open(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)));
        const bool ok = readAll(*f);
        EXPECT_EQ(ok, length == bytes.size()) << length;
        EXPECT_EQ(f->HasError(), !ok) << length;
    }
    for (size_t bit = 0; bit < bytes.size() * 8; bit += 3)
    {
        Bytes flipped = bytes;
        flipped[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        auto f = Open(flipped);
        EXPECT_EQ(f->HasError(), !readAll(*f)) << bit;
        EXPECT_LE(f->Tell(), static_cast<int64_t>(flipped.size()));
    }
}

INSTANTIATE_TEST_SUITE_P(MemoryDiskTinyBufferDisk, MFileEncoding, testing::Values(0, 5, 1 << 16));
