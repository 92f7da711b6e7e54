// Base of the extension sections of the native mesh format and their process-wide registry.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>

#include <cstdint>
#include <list>

namespace KelSDK::Triangles::Data
{
class MStlBase;
}

namespace KelSDK::Triangles::IO
{
class MStlFileIO;

// A plug-in writes one named section into the plug-in block of every native file and reads it
// back. Constructing a plug-in registers it for the life of the process; plug-ins are sorted by
// their save/load order (stable: equal orders keep their registration order).
class KELSDK_TRIANGLES_IO_EXPORT MStlFileIOPlugin
{
public:
    // Registers the plug-in with the given save/load order.
    explicit MStlFileIOPlugin(const uint64_t& saveLoadOrder = 0);
    // Does not unregister: plug-ins live as long as the process.
    virtual ~MStlFileIOPlugin();
    MStlFileIOPlugin(const MStlFileIOPlugin&) = delete;
    MStlFileIOPlugin& operator=(const MStlFileIOPlugin&) = delete;

    // The section name (zero-terminated, owned by the plug-in), unique among registered plug-ins.
    virtual const wchar_t* GetName() const = 0;
    // Writes the payload through writer->GetFile(); may write nothing.
    virtual void SaveData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* writer) = 0;
    // Reads the payload through reader->GetFile(); need not consume all of it.
    virtual void LoadData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* reader) = 0;

    // The order given to the constructor.
    uint64_t GetSaveLoadOrder() const { return saveLoadOrder_; }
    // The registry in save/load order, created on first use (thread-safe).
    static std::list<MStlFileIOPlugin*>& GetPlugins();

private:
    uint64_t saveLoadOrder_;
};
} // namespace KelSDK::Triangles::IO
