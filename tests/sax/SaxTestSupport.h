// Helpers of the KelSAX tests: documents written to memory, and a persist object whose reactions
// to each element name are set by the test.
#pragma once

#include <gtest/gtest.h>

#include <KelSAX/KelSAX.h>
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace KelSaxTest
{
using Bytes = std::vector<uint8_t>;

// The two encodings, for parameterised tests.
struct Encoding
{
    const char* name;
    bool archive;
};
inline const Encoding kEncodings[] = {{"Xml", false}, {"Archive", true}};
inline std::string EncodingName(const testing::TestParamInfo<Encoding>& info)
{
    return info.param.name;
}
inline void PrintTo(const Encoding& encoding, std::ostream* out)
{
    *out << encoding.name;
}

// A document written by body into memory; the test fails if writing does.
inline Bytes WriteDocument(bool archive, const std::function<void(KelSAX::SAXWriter&)>& body,
                           KelSAX::ESAXCompressionLevel level = KelSAX::eSAXCompressionDefault)
{
    KelSAX::SAXWriter writer;
    EXPECT_TRUE(writer.OpenMemory(level, archive));
    body(writer);
    EXPECT_TRUE(writer.Close()) << writer.GetError();
    return writer.GetBuffer();
}

inline Bytes AsBytes(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}
inline std::string AsText(const Bytes& bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

// Takes the elements that have a reaction (its result is HandleTag's) and records every element
// offered and every end.
class Scripted : public KelSAX::ISAXPersistBase
{
public:
    using Reaction = std::function<bool(KelSAX::ISAXReader&)>;
    std::map<std::string, Reaction> on;
    std::vector<std::string> offered;
    std::vector<std::string> ended;

    bool HandleTag(const std::string& tag, KelSAX::ISAXReader& reader) override
    {
        offered.push_back(tag);
        const auto it = on.find(tag);
        return it != on.end() && it->second(reader);
    }
    void EndTag(const std::string& tag, KelSAX::ISAXReader&) override { ended.push_back(tag); }
};

// Reads data with root; MGenericRead and the like pass to the caller.
inline void ReadDocument(const Bytes& data, KelSAX::ISAXPersistBase& root,
                         std::shared_ptr<KelSAX::SAXContexts::ISAXContext> context = {})
{
    KelSAX::SAXReader reader(std::move(context));
    reader.Read(data.data(), data.size(), root);
    reader.EndRead();
}

// The message of the MGenericRead that reading data throws; "" (and a test failure) if none.
inline std::string ReadFailure(const Bytes& data)
{
    Scripted root;
    try
    {
        ReadDocument(data, root);
    }
    catch (const KelSAX::MSAXError::MGenericRead& error)
    {
        return error.what();
    }
    ADD_FAILURE() << "the document was read";
    return {};
}
} // namespace KelSaxTest
