// The "ElementInfo" plug-in of the native mesh format: a mesh's element information (edge
// thickness, tolerance and caps, vertex radius) as a plug-in section.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

namespace KelSDK::Triangles::Data
{
class MStlBaseElementInfo;
}

namespace KelSDK::Triangles::IO
{
// Writes and reads the element information payload after its present switch, through the file of
// an MStlFileIO. The per-element lists follow the mesh's current graph edges and vertices in
// index order; their lengths are not stored. Reading never passes the payload's bytes: a list
// cut short keeps the defaults for the elements it lacks and ends the payload. Neither direction
// throws except std::bad_alloc; memory in proportion to the element counts.
class KELSDK_TRIANGLES_IO_EXPORT MStlBaseElementInfoMStlFileIO
{
public:
    // For reading into info.
    explicit MStlBaseElementInfoMStlFileIO(KelSDK::Triangles::Data::MStlBaseElementInfo& info);
    // For writing info.
    explicit MStlBaseElementInfoMStlFileIO(const KelSDK::Triangles::Data::MStlBaseElementInfo& info);
    virtual ~MStlBaseElementInfoMStlFileIO();

    // Reads the payload into the element information (nothing for a writing companion).
    virtual void Read(MStlFileIO& reader);
    // Writes the element information.
    virtual void Write(MStlFileIO& writer);

private:
    KelSDK::Triangles::Data::MStlBaseElementInfo* target_;
    const KelSDK::Triangles::Data::MStlBaseElementInfo* source_;
};

// The registered plug-in "ElementInfo", save/load order 0. A mesh without element information
// writes one false byte; loading such a section removes the mesh's element information.
class KELSDK_TRIANGLES_IO_EXPORT MStlBaseElementInfoMStlFileIOPlugin : public MStlFileIOPlugin
{
public:
    MStlBaseElementInfoMStlFileIOPlugin();
    ~MStlBaseElementInfoMStlFileIOPlugin() override;
    const wchar_t* GetName() const override { return L"ElementInfo"; }
    void SaveData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* writer) override;
    void LoadData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* reader) override;
};
} // namespace KelSDK::Triangles::IO
