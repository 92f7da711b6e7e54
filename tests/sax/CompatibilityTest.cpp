// Compatibility records: written and read as "CompatibilityInfo", and the compatibility rule.
#include "sax/SaxTestSupport.h"

namespace
{
using namespace KelSaxTest;
using KelSAX::ISAXReader;
using KelSAX::MSAXApplicationInfo;
using KelSAX::MSAXCompatibilityInfo;

// A record as a product would fill it for its files.
MSAXCompatibilityInfo Record(const std::string& application, short major)
{
    MSAXCompatibilityInfo info;
    info.SetFileVersionInfo(KelSAX::MSAXFileVersionInfo("Format", 1, 0));
    info.SetCurrentProduct(KelSAX::MSAXProductInfo(application));
    info.SetCurrentApplication(MSAXApplicationInfo(application, major, 0, 0, 0));
    return info;
}

class Compatibility : public testing::TestWithParam<Encoding>
{
};

TEST_P(Compatibility, ARecordRoundTripsThroughItsElement)
{
    MSAXCompatibilityInfo written = Record("KelStl", 1);
    written.AddBackwardCompatibleApplication("Vordex", 10, 0, 0, 0);
    written.AddBackwardCompatibleApplication("3Dorix", 1, 2, 3, 4);
    written.AddForwardCompatibleApplication("3Dorix", 4, 0, 0, 0);
    const Bytes data =
        WriteDocument(GetParam().archive, [&](KelSAX::SAXWriter& w) { EXPECT_TRUE(written.Write(w)); });
    MSAXCompatibilityInfo read;
    Scripted root;
    root.on["CompatibilityInfo"] = [&](ISAXReader& r)
    {
        read.Reset();
        return r.ReadInPlace(read);
    };
    ReadDocument(data, root);
    EXPECT_EQ(read.GetFileVersionInfo(), written.GetFileVersionInfo());
    EXPECT_EQ(read.GetCurrentProduct(), written.GetCurrentProduct());
    EXPECT_EQ(read.GetCurrentApplication(), written.GetCurrentApplication());
    EXPECT_EQ(read.GetBackwardCompatibleApplications(), written.GetBackwardCompatibleApplications());
    EXPECT_EQ(read.GetForwardCompatibleApplications(), written.GetForwardCompatibleApplications());
}

INSTANTIATE_TEST_SUITE_P(Encodings, Compatibility, testing::ValuesIn(kEncodings), EncodingName);

TEST(CompatibilityRecord, UnknownChildrenAndBadVersionsAreSkipped)
{
    const std::string text =
        "<KelSAX version=\"1.0\"><CompatibilityInfo>"
        "<Application><Name>A</Name><Version>1.2.x.4</Version><Extra>1</Extra></Application>"
        "<Future><Name>ignored</Name></Future>"
        "<FileVersion><Name>F</Name><Major>3</Major><Minor>oops</Minor></FileVersion>"
        "</CompatibilityInfo></KelSAX>";
    MSAXCompatibilityInfo read;
    Scripted root;
    root.on["CompatibilityInfo"] = [&](ISAXReader& r) { return r.ReadInPlace(read); };
    ReadDocument(AsBytes(text), root);
    EXPECT_EQ(read.GetCurrentApplication(), MSAXApplicationInfo("A", 0, 0, 0, 0));
    EXPECT_EQ(read.GetFileVersionInfo(), KelSAX::MSAXFileVersionInfo("F", 3, 0));
    EXPECT_EQ(read.GetCurrentProduct().GetName(), "");
}

TEST(CompatibilityRule, TheSameApplicationReadsItsOwnAndOlderFiles)
{
    EXPECT_TRUE(Record("KelStl", 1).IsFileCompatibilityWithApplication(Record("KelStl", 1)));
    EXPECT_TRUE(Record("KelStl", 1).IsFileCompatibilityWithApplication(Record("KelStl", 2)));
}

TEST(CompatibilityRule, ANewerVersionOfTheSameApplicationIsNotReadByAnOlder)
{
    EXPECT_FALSE(Record("KelStl", 2).IsFileCompatibilityWithApplication(Record("KelStl", 1)));
}

TEST(CompatibilityRule, TheFilesBackwardListAdmitsAnotherApplicationFromItsVersionOn)
{
    MSAXCompatibilityInfo file = Record("KelStl", 1);
    file.AddBackwardCompatibleApplication("Vordex", 10, 0, 0, 0);
    EXPECT_TRUE(file.IsFileCompatibilityWithApplication(Record("Vordex", 10)));
    EXPECT_TRUE(file.IsFileCompatibilityWithApplication(Record("Vordex", 11)));
    EXPECT_FALSE(file.IsFileCompatibilityWithApplication(Record("Vordex", 9)));
    EXPECT_FALSE(file.IsFileCompatibilityWithApplication(Record("Other", 99)));
}

TEST(CompatibilityRule, TheApplicationsForwardListAdmitsAnotherWriterUpToItsVersion)
{
    MSAXCompatibilityInfo application = Record("KelStl", 1);
    application.AddForwardCompatibleApplication("3Dorix", 4, 0, 0, 0);
    EXPECT_TRUE(Record("3Dorix", 4).IsFileCompatibilityWithApplication(application));
    EXPECT_TRUE(Record("3Dorix", 2).IsFileCompatibilityWithApplication(application));
    EXPECT_FALSE(Record("3Dorix", 5).IsFileCompatibilityWithApplication(application));
}

TEST(CompatibilityRule, ANewerMajorFileVersionOfTheSameFormatIsNeverCompatible)
{
    MSAXCompatibilityInfo file = Record("KelStl", 1);
    file.SetFileVersionInfo(KelSAX::MSAXFileVersionInfo("Format", 2, 0));
    EXPECT_FALSE(file.IsFileCompatibilityWithApplication(Record("KelStl", 1)));
    file.SetFileVersionInfo(KelSAX::MSAXFileVersionInfo("Format", 1, 7));
    EXPECT_TRUE(file.IsFileCompatibilityWithApplication(Record("KelStl", 1)));
}

TEST(CompatibilityRule, VersionsCompareThePartsInOrder)
{
    const MSAXApplicationInfo v("A", 1, 2, 3, 4);
    EXPECT_EQ(v.CompareVersion({1, 2, 3, 4}), 0);
    EXPECT_LT(v.CompareVersion({1, 2, 4, 0}), 0);
    EXPECT_GT(v.CompareVersion({1, 1, 9, 9}), 0);
    EXPECT_EQ(v.GetVersionText(), "1.2.3.4");
}
} // namespace
