// Reader and writer of the native mesh format: a header, an info block of section switches, the
// mesh sections in a fixed order and a block of named plug-in sections.
#pragma once

#include <KelSDK/Triangles/Data/MStlBlockPool.h>
#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/IStlFileIOPersist.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::FileIO
{
class MFile;
}
namespace KelSDK::Common
{
class IncrementalProgressReporter;
}
namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlCurveSet;
struct MStlCurve;
class MStlSurfaceBorder;
struct MStlBorderContour;
} // namespace KelSDK::Triangles::Data

namespace KelSDK::Triangles::IO
{
class KELSDK_TRIANGLES_IO_EXPORT MStlFileIO : public IStlFileIOPersist
{
public:
    using MErrorCode = MStlFileIOErrorCode;
    using MStlBase = KelSDK::Triangles::Data::MStlBase;
    using MFile = KelSDK::FileIO::MFile;

    // The text after the first byte of every native file.
    static constexpr const char* kMagic = "KelvinstoneStlFormat_Version_06_00";

    // Default switches: colours, curves, masks, points, registered points and triangles on;
    // history, triangle marks and triangle visibilities off. The first construction in a process
    // registers the built-in plug-ins (thread-safe, once).
    MStlFileIO();
    ~MStlFileIO() override;
    MStlFileIO(const MStlFileIO&) = delete;
    MStlFileIO& operator=(const MStlFileIO&) = delete;

    // Attaches the mesh to save or to fill (not owned).
    void SetStl(MStlBase* mesh);
    // Attaches an open file (not owned).
    void SetFile(MFile& file);
    // The attached file, or null.
    MFile* GetFile() const;

    // Switches of the info block; on load they are replaced by the file's values.
    void SetSaveColors(bool on);
    void SetSaveCurves(bool on);
    void SetSaveMasks(bool on);
    void SetSavePoints(bool on);
    void SetSaveRegisteredPoints(bool on);
    void SetSaveStlHistory(bool on);
    void SetSaveTriangleMarks(bool on);
    void SetSaveTriangleVisibilities(bool on);
    void SetSaveTriangles(bool on);
    bool GetSaveColors() const { return saveColors_; }
    bool GetSaveCurves() const { return saveCurves_; }
    bool GetSaveMasks() const { return saveMasks_; }
    bool GetSavePoints() const { return savePoints_; }
    bool GetSaveRegisteredPoints() const { return saveRegisteredPoints_; }
    bool GetSaveStlHistory() const { return saveHistory_; }
    bool GetSaveTriangleMarks() const { return saveTriangleMarks_; }
    bool GetSaveTriangleVisibilities() const { return saveTriangleVisibilities_; }
    bool GetSaveTriangles() const { return saveTriangles_; }

    // Result of the last operation.
    MErrorCode GetLastError() const { return lastError_; }
    // Text of the last error ("Unknown error detected." for codes without a text of their own).
    const char* GetLastErrorString() const;
    // Text of any error code.
    static const char* GetErrorString(MErrorCode code);

    // Writes the whole file; 1 without a mesh, 2 without a file, else the first failing section.
    MErrorCode Save(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress) override;
    // Reads the whole file into the mesh; 1 without a mesh, 2 without a file, 7 on a bad file,
    // 9 or 10 on a mark or visibility count that differs from the triangle count, 11 on a
    // reference to an unknown object.
    MErrorCode Load(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress) override;

    // Writes one tag byte.
    void SaveTag(unsigned char tag);
    // Reads one tag byte: 0 when it equals the expected value, else sets and returns 7.
    MErrorCode LoadTag(unsigned char expected);

    // Section twins for components that embed mesh parts in their own files. Object references
    // are translated through the identifier maps of the running Save or Load. Each returns 0,
    // 7 on a wrong tag or an impossible count, 11 on an unknown reference.
    // One named curve set (its curves).
    MErrorCode SaveStlCurve(const KelSDK::Triangles::Data::MStlCurveSet& set);
    MErrorCode LoadStlCurve(KelSDK::Triangles::Data::MStlCurveSet& set);
    // One curve (polyline).
    MErrorCode SaveStlCurveSegment(const KelSDK::Triangles::Data::MStlCurve& curve);
    MErrorCode LoadStlCurveSegment(KelSDK::Triangles::Data::MStlCurve& curve);
    // One surface border with its contours.
    MErrorCode SaveStlSurfaceBorder(const KelSDK::Triangles::Data::MStlSurfaceBorder& border);
    MErrorCode LoadStlSurfaceBorder(KelSDK::Triangles::Data::MStlSurfaceBorder& border);
    // One border contour with its sub-contours.
    MErrorCode SaveStlSurfaceBorderContour(const KelSDK::Triangles::Data::MStlBorderContour& contour);
    MErrorCode LoadStlSurfaceBorderContour(KelSDK::Triangles::Data::MStlBorderContour& contour);
    // The visibility of every surface of the mesh.
    MErrorCode SaveStlSurfaceVisibilityInfo(const MStlBase& mesh);
    MErrorCode LoadStlSurfaceVisibilityInfo(MStlBase& mesh);

    // While a plug-in reads its section: the bytes of the section not read yet; otherwise the
    // bytes left in the file (0 without a readable file). Plug-ins size what they read by it.
    uint64_t GetPluginBytesLeft() const;

    // Names of the plug-in sections met by the last Load, in file order (known or not).
    const std::vector<std::wstring>& GetLoadedPluginSections() const { return loadedPluginSections_; }
    // True when the file starts with byte 0 and the native magic text; false when unreadable.
    static bool IsNativeFile(const std::wstring& name);
    // Lists the plug-in section names of a native file without keeping the mesh; 0 on success.
    static MErrorCode ListPluginSections(const std::wstring& name, std::vector<std::wstring>& sections);

protected:
    MErrorCode _SaveHeader();
    MErrorCode _LoadHeader();
    void _SaveInfo();
    void _LoadInfo();
    MErrorCode _SaveStl(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);
    MErrorCode _LoadStl(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);
    MErrorCode _SaveStlProperties(MStlBase& mesh);
    MErrorCode _LoadStlProperties(MStlBase& mesh);
    MErrorCode _SaveStlBaseInfo(MStlBase& mesh);
    MErrorCode _LoadStlBaseInfo(MStlBase& mesh);
    MErrorCode _SaveStlPointList(MStlBase& mesh);
    MErrorCode _LoadStlPointList(MStlBase& mesh);
    MErrorCode _SaveStlTriangleList(MStlBase& mesh);
    MErrorCode _LoadStlTriangleList(MStlBase& mesh);
    MErrorCode _SaveStlSurfaceList(MStlBase& mesh);
    MErrorCode _LoadStlSurfaceList(MStlBase& mesh);
    MErrorCode _SaveStlCurveList(const MStlBase& mesh);
    MErrorCode _LoadStlCurveList(MStlBase& mesh);
    MErrorCode _SaveStlGraphFeature(MStlBase& mesh);
    MErrorCode _LoadStlGraphFeature(MStlBase& mesh);
    MErrorCode _SaveStlColorInfo(MStlBase& mesh);
    MErrorCode _LoadStlColorInfo(MStlBase& mesh);
    MErrorCode _SaveStlTriangleMarkInfo(MStlBase& mesh);
    MErrorCode _LoadStlTriangleMarkInfo(MStlBase& mesh);
    MErrorCode _SaveStlTriangleVisibilityInfo(MStlBase& mesh);
    MErrorCode _LoadStlTriangleVisibilityInfo(MStlBase& mesh);
    MErrorCode _SaveStlHistory(MStlBase& mesh);
    MErrorCode _LoadStlHistory(MStlBase& mesh);
    MErrorCode _SaveStlRegisteredPoints(MStlBase& mesh);
    MErrorCode _LoadStlRegisteredPoints(MStlBase& mesh);
    MErrorCode _SaveStlMasks(MStlBase& mesh);
    MErrorCode _LoadStlMasks(MStlBase& mesh);
    MErrorCode _SaveStlFaceGroupInfo(MStlBase& mesh);
    MErrorCode _LoadStlFaceGroupInfo(MStlBase& mesh);
    MErrorCode _SavePlugins(MStlBase& mesh);
    MErrorCode _LoadPlugins(MStlBase& mesh);
    // Creates the points and triangles gathered by the point, triangle and surface lists.
    MErrorCode _BuildTriangles(MStlBase& mesh);
    // Creates points still waiting for their triangles (a load that stopped early).
    void _FlushPendingPoints(MStlBase& mesh);
    // Registers the mesh's points (in list order) as the targets of point identifiers.
    void _RegisterLoadedPoints(MStlBase& mesh);

    // Stores the code as the last error and returns it.
    MErrorCode _SetError(MErrorCode code)
    {
        lastError_ = code;
        return code;
    }
    // Counts per-element steps; every 8192nd step advances the progress reporter by one.
    void _Steps(uint64_t count);
    // True when the file reported a failed read or write.
    bool _FileFailed() const;
    // Bytes left to read, 0 without a readable file.
    uint64_t _Remaining() const;

private:
    struct MReferenceMaps;

    MStlBase* mesh_ = nullptr;
    MFile* file_ = nullptr;
    MErrorCode lastError_ = eStlFileIOSuccess;

    bool saveColors_ = true;
    bool saveCurves_ = true;
    unsigned char meshPresent_ = 0; // set to 1 by Save with a mesh; not tested on load
    bool saveMasks_ = true;
    bool savePoints_ = true;
    bool saveRegisteredPoints_ = true;
    bool saveHistory_ = false;
    bool saveTriangleMarks_ = false;
    bool saveTriangleVisibilities_ = false;
    bool saveTriangles_ = true;

    // Properties section: extremes (x min, x max, y min, y max, z min, z max), widths, counts.
    std::array<int, 6> extremes_{};
    unsigned char coordinateWidth_ = 4;
    uint64_t vertexCount_ = 0;
    unsigned char vertexIndexWidth_ = 4;
    uint64_t triangleCount_ = 0;
    unsigned char triangleIndexWidth_ = 4;

    std::unique_ptr<MReferenceMaps> maps_;
    // Triangle build buffers, filled by the triangle list and handed to the mesh once the surface
    // list is known: corner indices, surface per triangle (0 none, else position + 1), colours.
    KelSDK::Triangles::Data::MStlBlockList<std::array<uint32_t, 3>> buildCorners_;
    std::vector<uint32_t> buildSurfaces_;
    std::vector<uint32_t> buildColors_;
    // Standard kind: points read but not yet created (they are created together with the
    // triangles in one call), and the positions of the user-defined ones.
    KelSDK::Triangles::Data::MStlBlockList<std::array<int, 3>> pendingPoints_;
    std::vector<uint64_t> pendingUserDefined_;
    bool hasPendingPoints_ = false;

    int storageKind_ = 0;
    std::unique_ptr<KelSDK::Common::IncrementalProgressReporter> progress_;
    uint64_t steps_ = 0;
    std::vector<std::wstring> loadedPluginSections_;
    int64_t pluginSectionEnd_ = -1; // end of the plug-in section being read, -1 outside one
};
} // namespace KelSDK::Triangles::IO
