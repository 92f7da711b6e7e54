// Typed values written and read back in both encodings.
#include "sax/SaxTestSupport.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace
{
using namespace KelSaxTest;
using KelSAX::ISAXReader;

class Values : public testing::TestWithParam<Encoding>
{
protected:
    // Writes one value with write and reads element "V" back with read.
    template <typename W, typename R> void RoundTrip(W&& write, R&& read)
    {
        const Bytes data = WriteDocument(GetParam().archive, write);
        Scripted root;
        bool seen = false;
        root.on["V"] = [&](ISAXReader& reader)
        {
            seen = true;
            read(reader);
            return true;
        };
        ReadDocument(data, root);
        EXPECT_TRUE(seen);
    }
};

template <typename T> void IntegerRows(Values& test, const std::vector<T>& rows)
{
    (void)test;
    for (const T value : rows)
    {
        SCOPED_TRACE(std::to_string(value));
        const Bytes data =
            WriteDocument(test.GetParam().archive, [&](KelSAX::SAXWriter& w) { w.WriteValue("V", value); });
        Scripted root;
        T got{};
        bool ok = false;
        root.on["V"] = [&](ISAXReader& reader) { return ok = reader.ReadValue(got); };
        ReadDocument(data, root);
        EXPECT_TRUE(ok);
        EXPECT_EQ(got, value);
    }
}

TEST_P(Values, IntegersKeepTheirExtremes)
{
    IntegerRows<int32_t>(*this,
                         {0, -1, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()});
    IntegerRows<uint32_t>(*this, {0u, std::numeric_limits<uint32_t>::max()});
    IntegerRows<int64_t>(*this, {std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()});
    IntegerRows<uint64_t>(*this, {0u, std::numeric_limits<uint64_t>::max()});
}

TEST_P(Values, DoublesKeepTheirBits)
{
    const double rows[] = {0.1,
                           -0.0,
                           1e308,
                           4.9406564584124654e-324,
                           -123456.789e-7,
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity()};
    for (const double value : rows)
    {
        SCOPED_TRACE(value);
        double got = 7;
        RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", value); },
                  [&](ISAXReader& r) { EXPECT_TRUE(r.ReadValue(got)); });
        uint64_t a, b;
        std::memcpy(&a, &value, 8);
        std::memcpy(&b, &got, 8);
        EXPECT_EQ(a, b);
    }
}

TEST_P(Values, NotANumberStaysNotANumber)
{
    double got = 0;
    RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", std::nan("")); },
              [&](ISAXReader& r) { EXPECT_TRUE(r.ReadValue(got)); });
    EXPECT_TRUE(std::isnan(got));
}

TEST_P(Values, BoolsRoundTrip)
{
    for (const bool value : {true, false})
    {
        bool got = !value;
        RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", value); },
                  [&](ISAXReader& r) { EXPECT_TRUE(r.ReadValue(got)); });
        EXPECT_EQ(got, value);
    }
}

TEST_P(Values, NarrowStringsComeBackByteForByte)
{
    const std::string rows[] = {"",
                                "plain",
                                "  blanks around  ",
                                "<tag> & \"quotes\" 'x'",
                                "line\r\nend\rcr\n",
                                "tab\there",
                                std::string("nul\0byte", 8),
                                "bell\x07",
                                "bad utf-8 \xC3\x28 \xFF",
                                "\xE6\xAD\xAF\xE8\xBB\x8A \xF0\x9F\x98\x80"};
    for (const std::string& value : rows)
    {
        SCOPED_TRACE(value);
        std::string got = "unchanged";
        RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", value); },
                  [&](ISAXReader& r) { EXPECT_TRUE(r.ReadValue(got)); });
        EXPECT_EQ(got, value);
    }
}

TEST_P(Values, WideStringsComeBackUnchanged)
{
    const std::wstring rows[] = {L"", L"Zahnrad \u00fc", L"\u6b6f\u8eca", L"\U0001F600 emoji", L" spaced "};
    for (const std::wstring& value : rows)
    {
        std::wstring got = L"unchanged";
        RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", value); },
                  [&](ISAXReader& r) { EXPECT_TRUE(r.ReadValue(got)); });
        EXPECT_EQ(got, value);
    }
}

TEST_P(Values, StringLiteralsAreStringsNotBools)
{
    std::string got;
    RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", "literal"); },
              [&](ISAXReader& r) { EXPECT_TRUE(r.ReadValue(got)); });
    EXPECT_EQ(got, "literal");
}

TEST_P(Values, BinaryValuesOfEverySizeRoundTrip)
{
    // Around the size from which an archive stores values as entries of their own.
    for (const size_t size :
         {size_t(0), size_t(1), size_t(2), size_t(3), size_t(1023), size_t(1024), size_t(300000)})
    {
        for (const bool compress : {true, false})
        {
            SCOPED_TRACE(std::to_string(size) + (compress ? " compressed" : " stored"));
            Bytes value(size);
            for (size_t i = 0; i < size; ++i)
                value[i] = static_cast<uint8_t>((i * 7919) ^ (i >> 5));
            Bytes got{1, 2, 3};
            uint64_t declared = 99;
            RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteBinary("V", value.data(), value.size(), compress); },
                      [&](ISAXReader& r)
                      {
                          EXPECT_TRUE(r.GetBinarySize(declared));
                          EXPECT_TRUE(r.ReadBinary(got));
                      });
            EXPECT_EQ(declared, size);
            EXPECT_EQ(got, value);
        }
    }
}

TEST_P(Values, BinaryIntoCallerMemoryNeedsTheExactSize)
{
    const Bytes value(5000, 0xAB);
    Bytes exact(5000), small(4999);
    bool exactOk = false, smallOk = true;
    RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteBinary("V", value.data(), value.size(), true); },
              [&](ISAXReader& r)
              {
                  smallOk = r.ReadBinary(small.data(), small.size());
                  exactOk = r.ReadBinary(exact.data(), exact.size());
              });
    EXPECT_FALSE(smallOk);
    EXPECT_TRUE(exactOk);
    EXPECT_EQ(exact, value);
}

TEST_P(Values, AnElementWithoutBinaryValueSaysSo)
{
    Bytes got;
    uint64_t size = 0;
    bool hasSize = true, read = true;
    RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", 5); },
              [&](ISAXReader& r)
              {
                  hasSize = r.GetBinarySize(size);
                  read = r.ReadBinary(got);
              });
    EXPECT_FALSE(hasSize);
    EXPECT_FALSE(read);
}

TEST_P(Values, TextThatIsNotTheTypeIsRefusedAndLeavesTheValue)
{
    struct Row
    {
        const char* text;
        bool isDouble;
    };
    const Row rows[] = {
        {"", false},  {"abc", false}, {"12x", false}, {"1.5", true}, {"99999999999999999999999", true},
        {"-", false}, {"1 2", false}};
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.text);
        int32_t i = 17;
        uint32_t u = 17;
        double d = 17;
        bool b = true;
        bool iOk = true, uOk = true, dOk = !row.isDouble, bOk = true;
        RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", std::string(row.text)); },
                  [&](ISAXReader& r)
                  {
                      iOk = r.ReadValue(i);
                      uOk = r.ReadValue(u);
                      dOk = r.ReadValue(d);
                      bOk = r.ReadValue(b);
                  });
        EXPECT_FALSE(iOk);
        EXPECT_FALSE(uOk);
        EXPECT_EQ(dOk, row.isDouble);
        EXPECT_FALSE(bOk);
        EXPECT_EQ(i, 17);
        EXPECT_EQ(u, 17u);
        EXPECT_TRUE(b);
    }
}

TEST_P(Values, NegativeTextIsNoUnsignedValue)
{
    uint32_t u = 3;
    RoundTrip([&](KelSAX::SAXWriter& w) { w.WriteValue("V", int32_t(-1)); },
              [&](ISAXReader& r) { EXPECT_FALSE(r.ReadValue(u)); });
    EXPECT_EQ(u, 3u);
}

TEST_P(Values, TrimmedCharacterDataLosesItsBlanksOnly)
{
    std::string got;
    double number = 0;
    RoundTrip(
        [&](KelSAX::SAXWriter& w)
        {
            w.WriteStartTag("V");
            w._WriteTrimmedCharData(" \t 1.25 \r\n");
            w.WriteEndTag("V");
        },
        [&](ISAXReader& r)
        {
            EXPECT_TRUE(r.ReadValue(got));
            EXPECT_TRUE(r.ReadValue(number));
        });
    EXPECT_EQ(got, "1.25");
    EXPECT_EQ(number, 1.25);
}

INSTANTIATE_TEST_SUITE_P(Encodings, Values, testing::ValuesIn(kEncodings), EncodingName);
} // namespace
