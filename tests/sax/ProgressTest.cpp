// Progress of reading through the context's delegate, and cancellation.
#include "sax/SaxTestSupport.h"

namespace
{
using namespace KelSaxTest;

class Recorder : public KelSDK::Common::IProgressDelegate
{
public:
    std::vector<double> fractions;
    bool cancel = false;
    void SetProgress(double fraction01) override { fractions.push_back(fraction01); }
    bool IsCancelled() const override { return cancel; }
};

Bytes ManyElements(bool archive)
{
    return WriteDocument(archive,
                         [](KelSAX::SAXWriter& w)
                         {
                             for (int32_t i = 0; i < 50000; ++i)
                                 w.WriteValue("V", i);
                         });
}

class Progress : public testing::TestWithParam<Encoding>
{
};

TEST_P(Progress, ReadingReportsRisingFractionsUpToOne)
{
    auto recorder = std::make_shared<Recorder>();
    auto context = KelSAX::SAXContextsFactory::CreateSAXContext(KelSAX::eSAXContextPlain);
    context->SetProgressDelegate(recorder);
    Scripted root;
    ReadDocument(ManyElements(GetParam().archive), root, context);
    ASSERT_GT(recorder->fractions.size(), 5u);
    EXPECT_EQ(recorder->fractions.front(), 0.0);
    EXPECT_EQ(recorder->fractions.back(), 1.0);
    for (size_t i = 1; i < recorder->fractions.size(); ++i)
        EXPECT_LE(recorder->fractions[i - 1], recorder->fractions[i]) << i;
}

TEST_P(Progress, ACancelledReadStops)
{
    auto recorder = std::make_shared<Recorder>();
    recorder->cancel = true;
    auto context = KelSAX::SAXContextsFactory::CreateSAXContext(KelSAX::eSAXContextPlain);
    context->SetProgressDelegate(recorder);
    Scripted root;
    EXPECT_THROW(ReadDocument(ManyElements(GetParam().archive), root, context),
                 KelSAX::MSAXError::MGenericRead);
    EXPECT_LT(root.offered.size(), 50000u);
}

TEST_P(Progress, WritingReportsItsStartAndEnd)
{
    auto recorder = std::make_shared<Recorder>();
    auto context = KelSAX::SAXContextsFactory::CreateSAXContext(KelSAX::eSAXContextPlain);
    context->SetProgressDelegate(recorder);
    KelSAX::SAXWriter writer(context);
    ASSERT_TRUE(writer.OpenMemory(KelSAX::eSAXCompressionDefault, GetParam().archive));
    writer.WriteValue("V", 1);
    ASSERT_TRUE(writer.Close());
    EXPECT_EQ(recorder->fractions, (std::vector<double>{0.0, 1.0}));
}

INSTANTIATE_TEST_SUITE_P(Encodings, Progress, testing::ValuesIn(kEncodings), EncodingName);
} // namespace
