// Malformed and hostile documents: each ends as MGenericRead with a message saying what was wrong.
#include "sax/SaxTestSupport.h"

#include <cstring>

namespace
{
using namespace KelSaxTest;
using KelSAX::ISAXReader;

void ExpectRefused(const std::string& text, const std::string& message)
{
    SCOPED_TRACE(text.substr(0, 80));
    const std::string what = ReadFailure(AsBytes(text));
    EXPECT_NE(what.find(message), std::string::npos) << what;
}

TEST(SaxHostileXml, BillionLaughsIsRefusedAtItsDoctype)
{
    ExpectRefused("<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">"
                  "<!ENTITY lol2 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">"
                  "<!ENTITY lol3 \"&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;\">]>"
                  "<KelSAX version=\"1.0\"><V>&lol3;</V></KelSAX>",
                  "DOCTYPE");
}

TEST(SaxHostileXml, ExternalEntitiesAreRefused)
{
    ExpectRefused("<!DOCTYPE x [<!ENTITY secret SYSTEM \"file:///etc/passwd\">]>"
                  "<KelSAX version=\"1.0\"><V>&secret;</V></KelSAX>",
                  "DOCTYPE");
    ExpectRefused("<!DOCTYPE KelSAX SYSTEM \"http://example.com/x.dtd\"><KelSAX version=\"1.0\"/>",
                  "DOCTYPE");
}

TEST(SaxHostileXml, UndeclaredEntitiesAreMalformed)
{
    ExpectRefused("<KelSAX version=\"1.0\"><V>&nothing;</V></KelSAX>", "malformed XML");
}

TEST(SaxHostileXml, DepthIsBounded)
{
    const uint32_t depth = KelSAX::SAXReader::kMaxDepth;
    std::string deep = "<KelSAX version=\"1.0\">";
    for (uint32_t i = 0; i < depth; ++i)
        deep += "<a>";
    ExpectRefused(deep, "nested deeper than 256");

    std::string fits = "<KelSAX version=\"1.0\">";
    for (uint32_t i = 1; i < depth; ++i)
        fits += "<a>";
    for (uint32_t i = 1; i < depth; ++i)
        fits += "</a>";
    fits += "</KelSAX>";
    Scripted root;
    EXPECT_NO_THROW(ReadDocument(AsBytes(fits), root));
}

TEST(SaxHostileXml, MalformedDocumentsAreRefused)
{
    struct Row
    {
        const char* text;
        const char* message;
    };
    const Row rows[] = {
        {"", "malformed XML"},
        {"not xml at all", "malformed XML"},
        {"<KelSAX version=\"1.0\"><A></B></KelSAX>", "mismatched tag"},
        {"<KelSAX version=\"1.0\"><A>", "malformed XML"},
        {"<Other version=\"1.0\"/>", "root element is 'Other'"},
        {"<KelSAX/>", "has no version"},
        {"<KelSAX version=\"one\"/>", "not major.minor"},
        {"<KelSAX version=\"1.0\"><A id=\"0\"/></KelSAX>", "invalid id"},
        {"<KelSAX version=\"1.0\"><A id=\"x\"/></KelSAX>", "invalid id"},
        {"<KelSAX version=\"1.0\"><A size=\"-1\"/></KelSAX>", "invalid size"},
        {"<KelSAX version=\"1.0\"><A encoding=\"hex\"/></KelSAX>", "invalid encoding"},
        {"<KelSAX version=\"1.0\"/><Second/>", "malformed XML"},
    };
    for (const Row& row : rows)
        ExpectRefused(row.text, row.message);
}

// A document whose element "V" is read as a binary value (or a string for V with an encoding).
std::string ReadBinaryFailure(const std::string& element)
{
    const std::string text = "<KelSAX version=\"1.0\">" + element + "</KelSAX>";
    Scripted root;
    root.on["V"] = [](ISAXReader& r)
    {
        std::vector<uint8_t> bytes;
        return r.ReadBinary(bytes);
    };
    root.on["S"] = [](ISAXReader& r)
    {
        std::string text;
        return r.ReadValue(text);
    };
    try
    {
        ReadDocument(AsBytes(text), root);
    }
    catch (const KelSAX::MSAXError::MGenericRead& error)
    {
        return error.what();
    }
    return "read";
}

TEST(SaxHostileXml, WrongBase64IsADamagedValue)
{
    struct Row
    {
        const char* element;
        const char* message;
    };
    const Row rows[] = {
        {"<V size=\"3\">AAA*</V>", "outside base64"},
        {"<V size=\"2\">AAA</V>", "wrong length"},
        {"<V size=\"1\">A===</V>", "wrong length"},
        {"<V size=\"2\">AA=A</V>", "misplaced padding"},
        {"<V size=\"4\">AAAA</V>", "holds 3 bytes, the element says 4"},
        {"<V size=\"1000000000000\">AAAA</V>", "holds 3 bytes"},
        {"<V size=\"1\">AB==</V>", "misplaced padding"},
        {"<V size=\"3\" entry=\"values/1\">AAAA</V>", "not in an archive"},
        {"<S encoding=\"base64\">A</S>", "wrong length"},
        {"<S encoding=\"base64\">####</S>", "outside base64"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.element);
        const std::string what = ReadBinaryFailure(row.element);
        EXPECT_NE(what.find(row.message), std::string::npos) << what;
    }
}

TEST(SaxHostileXml, Base64MayBeBrokenByBlanks)
{
    EXPECT_EQ(ReadBinaryFailure("<V size=\"6\">\n  AAEC\n  AwQF\n</V>"), "read");
}

// An archive with a binary value in an entry of its own.
Bytes SmallArchive()
{
    const Bytes value(4000, 3);
    return WriteDocument(true,
                         [&](KelSAX::SAXWriter& w)
                         {
                             w.WriteValue("Name", std::string("archive"));
                             w.WriteBinary("V", value.data(), value.size(), true);
                         });
}

// Reads the archive, taking "V" as a binary value; "read" or the error message.
std::string ReadArchive(const Bytes& data)
{
    Scripted root;
    root.on["V"] = [](ISAXReader& r)
    {
        std::vector<uint8_t> bytes;
        return r.ReadBinary(bytes);
    };
    try
    {
        ReadDocument(data, root);
    }
    catch (const KelSAX::MSAXError::MGenericRead& error)
    {
        return error.what();
    }
    return "read";
}

TEST(SaxHostileArchive, EveryCutOfAnArchiveIsRefused)
{
    const Bytes whole = SmallArchive();
    ASSERT_EQ(ReadArchive(whole), "read");
    for (size_t size = 0; size < whole.size(); ++size)
    {
        SCOPED_TRACE(size);
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_NE(ReadArchive(cut), "read");
    }
}

TEST(SaxHostileArchive, FlippedBytesEndInADefinedResult)
{
    const Bytes whole = SmallArchive();
    size_t refused = 0;
    for (size_t i = 0; i < whole.size(); ++i)
    {
        Bytes flipped = whole;
        flipped[i] ^= 0x5A;
        if (ReadArchive(flipped) != "read")
            ++refused;
    }
    // Most bytes matter; bytes such as timestamps do not.
    EXPECT_GT(refused, whole.size() / 2);
}

TEST(SaxHostileArchive, ADecompressionBombIsRefused)
{
    // 160 MiB of zeros deflate to about 160 KiB: far beyond 256 times the archive plus 64 MiB.
    const Bytes zeros(size_t(160) << 20, 0);
    const Bytes bomb = WriteDocument(true, [&](KelSAX::SAXWriter& w)
                                     { w.WriteBinary("V", zeros.data(), zeros.size(), true); });
    ASSERT_LT(bomb.size(), size_t(1) << 20);
    const std::string what = ReadArchive(bomb);
    EXPECT_NE(what.find("decompression bomb"), std::string::npos) << what;
}

TEST(SaxHostileArchive, AValueReadTooOftenExhaustsTheBudget)
{
    // 40 MiB once is within the bound; reading it again and again is not.
    const Bytes zeros(size_t(40) << 20, 0);
    const Bytes data = WriteDocument(true, [&](KelSAX::SAXWriter& w)
                                     { w.WriteBinary("V", zeros.data(), zeros.size(), true); });
    Scripted root;
    root.on["V"] = [](ISAXReader& r)
    {
        std::vector<uint8_t> bytes;
        for (int i = 0; i < 4; ++i)
            r.ReadBinary(bytes);
        return true;
    };
    try
    {
        ReadDocument(data, root);
        ADD_FAILURE() << "read four times";
    }
    catch (const KelSAX::MSAXError::MGenericRead& error)
    {
        EXPECT_NE(std::string(error.what()).find("decompression bound"), std::string::npos) << error.what();
    }
}

// Offset of the n-th occurrence of a 4-byte signature.
size_t Find(const Bytes& data, const char* signature, int nth)
{
    for (size_t i = 0; i + 4 <= data.size(); ++i)
    {
        if (std::memcmp(data.data() + i, signature, 4) == 0 && nth-- == 0)
            return i;
    }
    return data.size();
}

TEST(SaxHostileArchive, AnEntryLongerThanItsCompressedDataCanHoldIsRefused)
{
    Bytes data = SmallArchive();
    // The second central directory record is the value's: its uncompressed size at offset 24.
    const size_t record = Find(data, "PK\x01\x02", 1);
    ASSERT_LT(record, data.size());
    const uint32_t huge = 0x7FFFFFFF;
    std::memcpy(data.data() + record + 24, &huge, 4);
    const size_t local = Find(data, "PK\x03\x04", 1);
    std::memcpy(data.data() + local + 22, &huge, 4);
    const std::string what = ReadArchive(data);
    EXPECT_NE(what.find("damaged archive"), std::string::npos) << what;
}

TEST(SaxHostileArchive, AnArchiveWithoutDocumentIsRefused)
{
    const uint8_t empty[22] = {'P', 'K', 5, 6};
    const std::string what = ReadArchive(Bytes(empty, empty + sizeof empty));
    EXPECT_NE(what.find("no 'document.xml'"), std::string::npos) << what;
}
} // namespace
