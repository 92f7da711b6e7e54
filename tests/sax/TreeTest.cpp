// Element trees: the XML layout, the walk through elements, references, ids, skipping, writer
// errors and files.
#include "fileio/FileIOTestSupport.h"
#include "sax/SaxTestSupport.h"

#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{
using namespace KelSaxTest;
using KelSAX::ISAXReader;
using KelSAX::SAXWriter;

// A node of a small graph that writes itself with an id and a reference to another node.
class Node : public KelSAX::ISAXPersistBase
{
public:
    std::string label;
    Node* next = nullptr;
    uint32_t nextId = 0;
    bool resolved = false;

    bool Write(KelSAX::ISAXWriter& writer) const override
    {
        KelSAX::MSAXTagWriter tag(writer, "Node");
        writer.RegisterReference(this);
        writer.WriteValue("Label", label);
        return writer.WriteReference("Next", next);
    }
    bool HandleTag(const std::string& tag, ISAXReader& reader) override
    {
        if (tag == "Label")
            return reader.ReadValue(label);
        if (tag == "Next")
        {
            if (reader.ReadValue(nextId))
                reader.RegisterReferenceUser(this);
            return true;
        }
        return false;
    }
    void ResolveReferences(ISAXReader& reader) override
    {
        resolved = true;
        next = dynamic_cast<Node*>(reader.LookupReference(nextId));
    }
};

TEST(SaxTree, SmallTreeHasItsXmlLayout)
{
    Node a, b;
    a.label = "a<&>";
    a.next = &b;
    b.label = "b";
    const Bytes data = WriteDocument(false,
                                     [&](SAXWriter& w)
                                     {
                                         w.WriteStartTag("Nodes");
                                         a.Write(w);
                                         b.Write(w);
                                         w.WriteEndTag("Nodes");
                                         w.WriteStartTag("Empty");
                                         w.WriteEndTag("Empty");
                                         const uint8_t bytes[] = {0, 1, 2, 250};
                                         w.WriteBinary("Data", bytes, sizeof bytes, true);
                                         w.WriteValue("Bad", std::string("\x01"));
                                     });
    EXPECT_EQ(AsText(data), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                            "<KelSAX version=\"1.0\">\n"
                            "  <Nodes>\n"
                            "    <Node id=\"1\">\n"
                            "      <Label>a&lt;&amp;&gt;</Label>\n"
                            "      <Next>2</Next>\n"
                            "    </Node>\n"
                            "    <Node id=\"2\">\n"
                            "      <Label>b</Label>\n"
                            "      <Next>0</Next>\n"
                            "    </Node>\n"
                            "  </Nodes>\n"
                            "  <Empty/>\n"
                            "  <Data size=\"4\">AAEC+g==</Data>\n"
                            "  <Bad encoding=\"base64\">AQ==</Bad>\n"
                            "</KelSAX>\n");
}

class Tree : public testing::TestWithParam<Encoding>
{
};

// Reads "Node" elements in place with objects kept in nodes.
Scripted NodeList(std::vector<std::unique_ptr<Node>>& nodes)
{
    Scripted root;
    root.on["Nodes"] = [](ISAXReader&) { return true; };
    root.on["Node"] = [&nodes](ISAXReader& reader)
    {
        nodes.push_back(std::make_unique<Node>());
        return reader.ReadInPlace(*nodes.back());
    };
    return root;
}

TEST_P(Tree, ReferencesResolveForwardAndBackward)
{
    // a -> b (forward), b -> a (backward), c -> null.
    Node a, b, c;
    a.label = "a";
    b.label = "b";
    c.label = "c";
    a.next = &b;
    b.next = &a;
    const Bytes data = WriteDocument(GetParam().archive,
                                     [&](SAXWriter& w)
                                     {
                                         w.WriteStartTag("Nodes");
                                         a.Write(w);
                                         b.Write(w);
                                         c.Write(w);
                                         w.WriteEndTag("Nodes");
                                     });
    std::vector<std::unique_ptr<Node>> nodes;
    Scripted root = NodeList(nodes);
    ReadDocument(data, root);
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(nodes[0]->label, "a");
    EXPECT_EQ(nodes[0]->next, nodes[1].get());
    EXPECT_EQ(nodes[1]->next, nodes[0].get());
    EXPECT_TRUE(nodes[2]->resolved);
    EXPECT_EQ(nodes[2]->next, nullptr);
}

TEST_P(Tree, ReferencesAreResolvedOnlyByEndRead)
{
    Node a;
    a.next = &a;
    const Bytes data = WriteDocument(GetParam().archive, [&](SAXWriter& w) { a.Write(w); });
    std::vector<std::unique_ptr<Node>> nodes;
    Scripted root = NodeList(nodes);
    KelSAX::SAXReader reader;
    reader.Read(data.data(), data.size(), root);
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_FALSE(nodes[0]->resolved);
    reader.EndRead();
    EXPECT_EQ(nodes[0]->next, nodes[0].get());
}

TEST_P(Tree, AnIdNeverReadInPlaceNamesNothing)
{
    Node a, b;
    a.next = &b;
    const Bytes data = WriteDocument(GetParam().archive,
                                     [&](SAXWriter& w)
                                     {
                                         a.Write(w);
                                         w.WriteStartTag("Other");
                                         b.Write(w);
                                         w.WriteEndTag("Other");
                                     });
    std::vector<std::unique_ptr<Node>> nodes;
    Scripted root = NodeList(nodes); // "Other" is refused: b is skipped
    ReadDocument(data, root);
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_TRUE(nodes[0]->resolved);
    EXPECT_EQ(nodes[0]->next, nullptr);
}

TEST_P(Tree, RefusedElementsAreSkippedWithTheirSubtree)
{
    const Bytes data = WriteDocument(GetParam().archive,
                                     [&](SAXWriter& w)
                                     {
                                         w.WriteStartTag("Unknown");
                                         w.WriteValue("Inner", 1);
                                         w.WriteStartTag("Deeper");
                                         w.WriteValue("Inner", 2);
                                         w.WriteEndTag("Deeper");
                                         w.WriteEndTag("Unknown");
                                         w.WriteValue("Known", 3);
                                     });
    Scripted root;
    int32_t known = 0;
    root.on["Known"] = [&](ISAXReader& r) { return r.ReadValue(known); };
    root.on["Inner"] = [](ISAXReader&) { return true; };
    ReadDocument(data, root);
    EXPECT_EQ(root.offered, (std::vector<std::string>{"Unknown", "Known"}));
    EXPECT_EQ(known, 3);
}

TEST_P(Tree, TakenElementsOfferTheirChildrenAndEndAfterThem)
{
    const Bytes data = WriteDocument(GetParam().archive,
                                     [&](SAXWriter& w)
                                     {
                                         w.WriteStartTag("Database");
                                         w.WriteStartTag("Objects");
                                         w.WriteValue("Item", 1);
                                         w.WriteEndTag("Objects");
                                         w.WriteEndTag("Database");
                                     });
    Scripted root;
    std::vector<std::string> enclosing, current;
    for (const char* name : {"Database", "Objects", "Item"})
    {
        root.on[name] = [&](ISAXReader& r)
        {
            enclosing.push_back(r.GetEnclosingTag());
            current.push_back(r.GetCurrentTag());
            return true;
        };
    }
    ReadDocument(data, root);
    EXPECT_EQ(root.offered, (std::vector<std::string>{"Database", "Objects", "Item"}));
    EXPECT_EQ(root.ended, (std::vector<std::string>{"Item", "Objects", "Database"}));
    EXPECT_EQ(enclosing, (std::vector<std::string>{"", "Database", "Objects"}));
    EXPECT_EQ(current, (std::vector<std::string>{"Database", "Objects", "Item"}));
}

TEST_P(Tree, ReadInPlaceWorksWithAnObjectOnTheStackAndOnlyOnce)
{
    const Bytes data = WriteDocument(GetParam().archive,
                                     [&](SAXWriter& w)
                                     {
                                         w.WriteStartTag("Outer");
                                         w.WriteValue("Value", 41);
                                         w.WriteEndTag("Outer");
                                         w.WriteValue("After", 42);
                                     });
    Scripted root;
    std::vector<int32_t> values;
    bool second = true;
    root.on["Outer"] = [&](ISAXReader& r)
    {
        Scripted inner;
        inner.on["Value"] = [&](ISAXReader& ir)
        {
            values.push_back(0);
            return ir.ReadValue(values.back());
        };
        const bool first = r.ReadInPlace(inner);
        second = r.ReadInPlace(inner);
        return first;
    };
    root.on["After"] = [&](ISAXReader& r)
    {
        values.push_back(0);
        return r.ReadValue(values.back());
    };
    ReadDocument(data, root);
    EXPECT_EQ(values, (std::vector<int32_t>{41, 42}));
    EXPECT_FALSE(second);
    EXPECT_EQ(root.offered, (std::vector<std::string>{"Outer", "After"}));
}

TEST_P(Tree, ReadingTwiceForgetsTheFirstDocument)
{
    Node a;
    const Bytes data = WriteDocument(GetParam().archive, [&](SAXWriter& w) { a.Write(w); });
    const Bytes empty = WriteDocument(GetParam().archive, [](SAXWriter&) {});
    std::vector<std::unique_ptr<Node>> nodes;
    Scripted root = NodeList(nodes);
    KelSAX::SAXReader reader;
    reader.Read(data.data(), data.size(), root);
    EXPECT_NE(reader.LookupReference(1), nullptr);
    reader.Read(empty.data(), empty.size(), root);
    EXPECT_EQ(reader.LookupReference(1), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Encodings, Tree, testing::ValuesIn(kEncodings), EncodingName);

// Two elements with the same id, as another program might write them.
const char* kDuplicateIds = "<KelSAX version=\"1.0\"><Node id=\"4\"><Label>first</Label></Node>"
                            "<Node id=\"4\"><Label>second</Label></Node></KelSAX>";

TEST(SaxIds, WithoutTheUniqueIdOptionADuplicateIdNamesTheFirstElement)
{
    std::vector<std::unique_ptr<Node>> nodes;
    Scripted root = NodeList(nodes);
    KelSAX::SAXReader reader(KelSAX::SAXContextsFactory::CreateSAXContext(KelSAX::eSAXContextDatabase));
    reader.Read(kDuplicateIds, std::strlen(kDuplicateIds), root);
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(reader.LookupReference(4), nodes[0].get());
}

TEST(SaxIds, DatabaseContextsRequiringUniqueIdsRefuseADuplicate)
{
    auto context = KelSAX::SAXContextsFactory::CreateSAXContext(KelSAX::eSAXContextDatabase);
    auto* database = dynamic_cast<KelSAX::SAXContexts::ISAXDatabaseContext*>(context.get());
    ASSERT_NE(database, nullptr);
    EXPECT_FALSE(database->GetRequireUniqueIds());
    database->SetRequireUniqueIds(true);
    Scripted root;
    KelSAX::SAXReader reader(context);
    try
    {
        reader.Read(kDuplicateIds, std::strlen(kDuplicateIds), root);
        ADD_FAILURE() << "a duplicate id was accepted";
    }
    catch (const KelSAX::MSAXError::MGenericRead& error)
    {
        EXPECT_NE(std::string(error.what()).find("id 4"), std::string::npos) << error.what();
    }
}

TEST(SaxIds, PlainFactoryTypeGivesAPlainContext)
{
    auto context = KelSAX::SAXContextsFactory::CreateSAXContext(KelSAX::eSAXContextPlain);
    EXPECT_EQ(context->GetType(), KelSAX::eSAXContextPlain);
    EXPECT_EQ(dynamic_cast<KelSAX::SAXContexts::ISAXDatabaseContext*>(context.get()), nullptr);
}

TEST(SaxIds, AnObjectIsMarkedOnOneElementOnly)
{
    Node a;
    const Bytes data = WriteDocument(false,
                                     [&](SAXWriter& w)
                                     {
                                         a.Write(w);
                                         a.Write(w);
                                     });
    const std::string text = AsText(data);
    EXPECT_EQ(text.find("id=\"1\""), text.rfind("id=\"1\""));
}

TEST(SaxVersion, ANewerMinorVersionIsRead)
{
    const std::string text = "<KelSAX version=\"1.9\"><V>5</V><Future><X/></Future></KelSAX>";
    Scripted root;
    int32_t v = 0;
    root.on["V"] = [&](ISAXReader& r) { return r.ReadValue(v); };
    ReadDocument(AsBytes(text), root);
    EXPECT_EQ(v, 5);
}

TEST(SaxVersion, ANewerMajorVersionIsIncompatible)
{
    const std::string text = "<KelSAX version=\"2.0\"><V>5</V></KelSAX>";
    Scripted root;
    root.on["V"] = [](ISAXReader&) { return true; };
    EXPECT_THROW(ReadDocument(AsBytes(text), root), KelSAX::MSAXError::MSAXIncompatibleVersion);
    EXPECT_TRUE(root.offered.empty());
}

TEST(SaxWriterErrors, MisplacedCallsFailTheWriterAndAreReported)
{
    struct Row
    {
        const char* label;
        std::function<void(SAXWriter&)> body;
        const char* message;
    };
    const Row rows[] = {
        {"wrong end tag", [](SAXWriter& w) { w.WriteStartTag("A"), w.WriteEndTag("B"); },
         "end tag 'B' while 'A'"},
        {"end without start", [](SAXWriter& w) { w.WriteEndTag("A"); }, "without an open element"},
        {"unclosed", [](SAXWriter& w) { w.WriteStartTag("A"); }, "'A' is still open"},
        {"bad name", [](SAXWriter& w) { w.WriteValue("1st", 1); }, "not an element name"},
        {"name with blank", [](SAXWriter& w) { w.WriteValue("a b", 1); }, "not an element name"},
        {"text outside", [](SAXWriter& w) { w._WriteTrimmedCharData("x"); }, "outside any element"},
        {"control text", [](SAXWriter& w) { w.WriteStartTag("A"), w._WriteTrimmedCharData("\x02"); },
         "XML can carry"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        SAXWriter writer;
        ASSERT_TRUE(writer.OpenMemory(KelSAX::eSAXCompressionDefault, false));
        row.body(writer);
        EXPECT_FALSE(writer.Close());
        EXPECT_NE(writer.GetError().find(row.message), std::string::npos) << writer.GetError();
    }
}

TEST(SaxWriterErrors, AFailedWriterRefusesFurtherCalls)
{
    SAXWriter writer;
    ASSERT_TRUE(writer.OpenMemory(KelSAX::eSAXCompressionDefault, false));
    EXPECT_FALSE(writer.WriteEndTag("A"));
    EXPECT_FALSE(writer.WriteValue("B", 1));
    Node node;
    EXPECT_EQ(writer.RegisterReference(&node), 0u);
}

class SaxFiles : public testing::TestWithParam<Encoding>
{
protected:
    KelTest::ScratchDir dir_;
};

TEST_P(SaxFiles, AFileRoundTripsThroughANonAsciiName)
{
    const std::wstring path = dir_.Wide("Projekt_\xC3\xBC_\xE6\xAD\xAF.kel");
    SAXWriter writer;
    ASSERT_TRUE(writer.Open(path.c_str(), KelSAX::eEncryptionStandard, KelSAX::eSAXCompressionDefault,
                            GetParam().archive));
    writer.WriteValue("V", std::wstring(L"\u00fc"));
    ASSERT_TRUE(writer.Close()) << writer.GetError();
    Scripted root;
    std::wstring got;
    root.on["V"] = [&](ISAXReader& r) { return r.ReadValue(got); };
    KelSAX::SAXReader reader;
    reader.Read(path.c_str(), root);
    EXPECT_EQ(got, L"\u00fc");
}

TEST_P(SaxFiles, AFailedWriteLeavesThePreviousFile)
{
    const std::filesystem::path file = dir_.Path() / "keep.kel";
    std::ofstream(file) << "previous";
    const std::wstring path = dir_.Wide("keep.kel");
    SAXWriter writer;
    ASSERT_TRUE(writer.Open(path.c_str(), KelSAX::eEncryptionNone, KelSAX::eSAXCompressionDefault,
                            GetParam().archive));
    const Bytes big(200000, 7);
    writer.WriteBinary("Big", big.data(), big.size(), true);
    writer.WriteStartTag("Unclosed");
    EXPECT_FALSE(writer.Close());
    EXPECT_EQ(AsText(KelTest::ReadWholeFile(file)), "previous");
    EXPECT_EQ(dir_.List(), std::vector<std::string>{"keep.kel"});
}

TEST_P(SaxFiles, AWriterDestroyedUnclosedLeavesNoTrace)
{
    {
        SAXWriter writer;
        const std::wstring path = dir_.Wide("never.kel");
        ASSERT_TRUE(writer.Open(path.c_str(), KelSAX::eEncryptionNone, KelSAX::eSAXCompressionDefault,
                                GetParam().archive));
        writer.WriteValue("V", 1);
    }
    EXPECT_TRUE(dir_.List().empty());
}

TEST_P(SaxFiles, AMissingFolderFailsOpenWithTheReason)
{
    const std::wstring path = dir_.Wide("no_such_folder/x.kel");
    SAXWriter writer;
    EXPECT_FALSE(writer.Open(path.c_str(), KelSAX::eEncryptionNone, KelSAX::eSAXCompressionDefault,
                             GetParam().archive));
    // "cannot create '...x.kel': " and the operating system's reason, whose words differ by system.
    const std::string& error = writer.GetError();
    EXPECT_EQ(error.rfind("cannot create '", 0), 0u) << error;
    const size_t reason = error.find("x.kel': ");
    ASSERT_NE(reason, std::string::npos) << error;
    EXPECT_GT(error.size(), reason + 8) << error;
}

TEST_P(SaxFiles, AMissingFileIsAGenericReadError)
{
    const std::wstring path = dir_.Wide("absent.kel");
    Scripted root;
    KelSAX::SAXReader reader;
    EXPECT_THROW(reader.Read(path.c_str(), root), KelSAX::MSAXError::MGenericRead);
}

INSTANTIATE_TEST_SUITE_P(Encodings, SaxFiles, testing::ValuesIn(kEncodings), EncodingName);
} // namespace
