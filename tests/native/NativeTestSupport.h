// Shared pieces of the native format tests: test plug-ins, byte builders, save/load helpers.
#pragma once

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlRevisionSystem.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace NativeTest
{
using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;
using Bytes = std::vector<uint8_t>;

// A plug-in whose payload is a fixed byte string; it reads readCount bytes of it back (fewer
// than written exercises the container's seek to the end position).
struct BytesPlugin : MStlFileIOPlugin
{
    BytesPlugin(const wchar_t* name, uint64_t order, Bytes payload, size_t readCount)
        : MStlFileIOPlugin(order), name(name), payload(std::move(payload)), readCount(readCount)
    {
    }
    const wchar_t* GetName() const override { return name; }
    void SaveData(MStlBase*, MStlFileIO* writer) override
    {
        writer->GetFile()->WRITE(payload.data(), payload.size());
    }
    void LoadData(MStlBase*, MStlFileIO* reader) override
    {
        loaded.assign(readCount, 0);
        reader->GetFile()->READ(loaded.data(), loaded.size());
        ++loadCount;
    }

    const wchar_t* name;
    Bytes payload, loaded;
    size_t readCount;
    int loadCount = 0;
};

// Registered as "TA" (order 5, 4 bytes, read whole), "TS" (order 5, 6 bytes, reads only 2),
// "TB" (order 2, empty). Sorted stably by order: TB, TA, TS.
struct TestPlugins
{
    BytesPlugin alpha{L"TA", 5, {0xA1, 0xA2, 0xA3, 0xA4}, 4};
    BytesPlugin shortReader{L"TS", 5, {0x51, 0x52, 0x53, 0x54, 0x55, 0x56}, 2};
    BytesPlugin beta{L"TB", 2, {}, 0};

    void Reset()
    {
        for (BytesPlugin* p : {&alpha, &shortReader, &beta})
            p->loaded.clear(), p->loadCount = 0;
    }
};

inline TestPlugins& Plugins()
{
    static TestPlugins plugins;
    return plugins;
}

// Appends little-endian values and strings to an expected byte string.
struct ByteBuilder
{
    Bytes bytes;

    ByteBuilder& le(uint64_t v, int n)
    {
        for (int i = 0; i < n; ++i)
            bytes.push_back(static_cast<uint8_t>(v >> (8 * i)));
        return *this;
    }
    ByteBuilder& u8(uint8_t v) { return le(v, 1); }
    ByteBuilder& u32(uint32_t v) { return le(v, 4); }
    ByteBuilder& i32(int32_t v) { return le(static_cast<uint32_t>(v), 4); }
    ByteBuilder& u64(uint64_t v) { return le(v, 8); }
    ByteBuilder& raw(const Bytes& values)
    {
        bytes.insert(bytes.end(), values.begin(), values.end());
        return *this;
    }
    ByteBuilder& f32(float f)
    {
        uint32_t v = 0;
        std::memcpy(&v, &f, 4);
        return u32(v);
    }
    ByteBuilder& f64(double d)
    {
        uint64_t v = 0;
        std::memcpy(&v, &d, 8);
        return u64(v);
    }
    // Narrow string: u32 byte count and the bytes.
    ByteBuilder& str(const std::string& s)
    {
        return u32(static_cast<uint32_t>(s.size())).raw(Bytes(s.begin(), s.end()));
    }
    // Wide string of Latin-1 characters: u32 unit count and UTF-16LE units.
    ByteBuilder& wstr(const std::string& s)
    {
        u32(static_cast<uint32_t>(s.size()));
        for (char c : s)
            u8(static_cast<uint8_t>(c)).u8(0);
        return *this;
    }
    // Header: 0, the magic, 1.
    ByteBuilder& header() { return u8(0).str("KelvinstoneStlFormat_Version_06_00").u8(1); }
    // The identity card record of a card without parents, its history left out.
    ByteBuilder& card(const MStlRevisionSystem::MIDCard& c)
    {
        i32(1).u32(0).wstr(Narrow(c.GetGlobalID().GetString(true, true)));
        u32(c.GetRevision().GetNumber()).wstr(Narrow(c.GetRevision().GetString(true, true)));
        return u8(c.RevisionUpToDate()).u8(0).u32(0).u32(0);
    }
    // The plug-in block, starting at the current size, for a mesh whose only attachment is the
    // identity card: the built-in sections, then those of the test registry.
    ByteBuilder& pluginBlock(const MStlRevisionSystem::MIDCard& meshCard = MStlRevisionSystem::MIDCard())
    {
        u8(194).u32(8).section("ElementInfo", {0}).section("StlTextures", {0, 0, 0, 0, 0, 0, 0, 0});
        section("RevisionInfo", ByteBuilder().card(meshCard).bytes).section("SurfaceZones", {0});
        section("UVMapList", {0}).section("TB", {}).section("TA", {0xA1, 0xA2, 0xA3, 0xA4});
        return section("TS", {0x51, 0x52, 0x53, 0x54, 0x55, 0x56}).u8(195);
    }
    // The plug-in block of a mesh, making its identity card when it has none.
    ByteBuilder& pluginBlock(const MStlBase& mesh)
    {
        return pluginBlock(*MStlRevisionSystem::GetIDCard(&mesh));
    }
    static std::string Narrow(const std::wstring& ascii) { return std::string(ascii.begin(), ascii.end()); }
    // One plug-in section: wide name, absolute end position, payload.
    ByteBuilder& section(const std::string& name, const Bytes& payload)
    {
        wstr(name).u32(static_cast<uint32_t>(bytes.size() + 4 + payload.size()));
        return raw(payload);
    }
};

// Size of the plug-in block of a mesh whose only attachment is its identity card (the card's
// identifiers always take the same number of bytes).
inline size_t PluginBlockSize()
{
    return ByteBuilder().pluginBlock().bytes.size();
}

// Writer switches as bits; Defaults are those of a new MStlFileIO.
constexpr unsigned kColors = 1, kCurves = 2, kMasks = 4, kPoints = 8, kRegistered = 16, kHistory = 32,
                   kMarks = 64, kVisibilities = 128, kTriangles = 256, kAllOn = 511, kAllOff = 0,
                   kDefaults = kColors | kCurves | kMasks | kPoints | kRegistered | kTriangles;

// Saves the mesh into memory with the given switches; the result code goes to *code.
inline Bytes SaveToBytes(MStlBase& mesh, unsigned switches = kDefaults,
                         MStlFileIO::MErrorCode* code = nullptr)
{
    Plugins();
    KelSDK::FileIO::MMemoryFile file;
    file.OpenWrite();
    MStlFileIO io;
    io.SetSaveColors(switches & kColors);
    io.SetSaveCurves(switches & kCurves);
    io.SetSaveMasks(switches & kMasks);
    io.SetSavePoints(switches & kPoints);
    io.SetSaveRegisteredPoints(switches & kRegistered);
    io.SetSaveStlHistory(switches & kHistory);
    io.SetSaveTriangleMarks(switches & kMarks);
    io.SetSaveTriangleVisibilities(switches & kVisibilities);
    io.SetSaveTriangles(switches & kTriangles);
    io.SetStl(&mesh);
    io.SetFile(file);
    const MStlFileIO::MErrorCode result = io.Save(nullptr);
    if (code)
        *code = result;
    file.Close();
    return file.GetData();
}

// Loads bytes into the mesh; returns the code (and the reader's error text in *text).
inline MStlFileIO::MErrorCode LoadFromBytes(const Bytes& bytes, MStlBase& mesh, std::string* text = nullptr,
                                            MStlFileIO* reader = nullptr)
{
    Plugins();
    KelSDK::FileIO::MMemoryFile file;
    file.OpenRead(bytes.data(), bytes.size());
    MStlFileIO own;
    MStlFileIO& io = reader ? *reader : own;
    io.SetStl(&mesh);
    io.SetFile(file);
    const MStlFileIO::MErrorCode code = io.Load(nullptr);
    EXPECT_EQ(code, io.GetLastError());
    if (text)
        *text = io.GetLastErrorString();
    return code;
}

// Attachments that every kind carries: material, flags, curves, registered points, history,
// colour masks, face groups and surface names and visibilities.
inline void AddCommonParts(MStlBase& mesh)
{
    MStlMaterial material;
    material.SetRGB(0x80112233u);
    material.SetSpecular(5);
    material.SetAmbient(6);
    material.SetShininess(0.75f);
    mesh.SetMaterial(material);
    mesh.GetProperties().SetIsSupport(true);
    mesh.GetProperties().SetIsSupposedSolid(false);
    MStlCurveSet* set = mesh.GetCurves().AddCurveSet();
    set->SetName(L"outline \u00e9");
    set->AddCurve(MStlCurve{{{0, 0, 0}, {5, -5, 5}, {-2147483647 - 1, 2147483647, 0}}, true});
    set->AddCurve(MStlCurve{{}, false});
    mesh.GetCurves().AddCurveSet()->SetName(L"empty");
    mesh.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{1, 2, 3, 77, L"fiducial"});
    mesh.GetRegisteredPoints().AddPoint(MStlRegisteredPoint{-1, -2, -3, 0, L""});
    mesh.GetHistory().AddEntry(MHistoryEntry{L"Import", L"part.stl", 1700000000, L"anna"});
    mesh.GetHistory().AddEntry(MHistoryEntry{L"Repair", L"", -5, L""});
    MStlPointColorMask* vertexColors = mesh.GetColorMasks().CreateMainPointColorMask();
    vertexColors->SetDefault(MStlColor(0x0000FFu));
    vertexColors->SetInfo(2, MStlColor(0x00FF00u));
    mesh.GetSurfaceList().GetSurface(0)->SetName(L"main");
    mesh.GetSurfaceList().GetSurface(1)->SetVisible(false);
    MStlBaseFaceGroupInfo* groups = mesh._CreateFaceGroupInfo();
    for (size_t t = 0; t < mesh.NumberOfTriangles(); ++t)
        groups->SetFaceID(t, static_cast<unsigned long>(100 + 3 * t));
}

// Standard kind: six points, four triangles alternating between two surfaces (an order that
// cannot be built surface by surface), colours, marks, visibilities, graph edges and a border.
inline void BuildStandard(MStlBase& mesh)
{
    MStlSurface* second = mesh.AddSurface();
    second->SetName(L"second");
    std::vector<MStlPoint*> p;
    ASSERT_TRUE(
        mesh.CreatePoints({{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {10, 10, 5}, {20, 0, 5}, {0, 0, 0}}, &p));
    p[1]->SetUserDefined(true);
    p[4]->SetUserDefined(true);
    mesh.CreateTriangle(p[0], p[1], p[2], nullptr)->SetColor(MStlColor(0xFF0000u));
    mesh.CreateTriangle(p[1], p[3], p[2], second)->SetMark(3);
    MStlTriangle* t2 = mesh.CreateTriangle(p[1], p[4], p[3], nullptr);
    t2->SetColor(MStlColor(0u));
    t2->MakeInvisible();
    mesh.CreateTriangle(p[5], p[4], p[1], second)->SetMark(255);
    mesh.CreateGraphEdge(p[0], p[4]);
    mesh.CreateGraphEdge(p[3], p[3]);
    MStlBorderContour contour;
    contour.subContours.push_back(MStlSubContour{{p[1], p[3]}, mesh.GetMainSurface()});
    contour.subContours.push_back(MStlSubContour{{p[3], p[4], p[1]}, nullptr});
    mesh.GetSurfaceBorders().AddBorder(second)->Contours() = {contour, MStlBorderContour{}};
    mesh.GetSurfaceBorders().AddBorder(nullptr);
    AddCommonParts(mesh);
}

// Compact or OnDisk kind through the uniform store interface, with one duplicate position
// (vertex sharing off) and graph edges where the kind has them.
inline void BuildHybrid(MStlBase& mesh, MStlHybridState kind)
{
    MStlHybrid& h = mesh.GetStlHybrid();
    ASSERT_TRUE(h.SetState(kind));
    h.SetVerticesShared(false);
    MStlSurface* second = mesh.AddSurface();
    second->SetName(L"second");
    ASSERT_TRUE(h.StartAddingVertices());
    for (const auto& v :
         {std::array<int, 3>{0, 0, 0}, {100000, 0, 0}, {0, 10, -7}, {10, 10, 5}, {20, 0, 5}, {0, 0, 0}})
        h.AddVertex(v[0], v[1], v[2]);
    const std::pair<MStlSurface*, std::array<unsigned, 3>> triangles[] = {
        {nullptr, {0, 1, 2}}, {nullptr, {1, 4, 3}}, {second, {1, 3, 2}}, {nullptr, {5, 4, 1}}};
    for (const auto& t : triangles)
    {
        ASSERT_TRUE(h.StartAddingTriangles(t.first));
        h.AddTriangle(t.second[0], t.second[1], t.second[2]);
    }
    ASSERT_TRUE(h.StartAddingTriangleColors());
    for (const MStlColor& c : {MStlColor(0xFF0000u), MStlColor(), MStlColor(0u), MStlColor(0x00ABCDEFu)})
        h.AddColor(c);
    ASSERT_TRUE(h.Close());
    h.UpdateParentBoundingBox();
    if (kind == eStlCompact)
    {
        h.GetStlCompact()->AddEdge(0, 4);
        h.GetStlCompact()->AddEdge(5, 5);
    }
    AddCommonParts(mesh);
}

// The Standard mesh with every section (6 points, 4 triangles), saved with every switch on.
inline Bytes StandardFile()
{
    MStlBase mesh;
    BuildStandard(mesh);
    return SaveToBytes(mesh, kAllOn);
}

// Position of the first occurrence of a byte pattern, or SIZE_MAX.
inline size_t Find(const Bytes& haystack, const Bytes& needle, size_t from = 0)
{
    const auto at = std::search(haystack.begin() + static_cast<std::ptrdiff_t>(from), haystack.end(),
                                needle.begin(), needle.end());
    return at == haystack.end() ? SIZE_MAX : static_cast<size_t>(at - haystack.begin());
}
} // namespace NativeTest
