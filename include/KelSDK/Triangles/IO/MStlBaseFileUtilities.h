// One-call STL import and export of a mesh.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>
#include <KelSDK/Triangles/IO/MStlReadOptions.h>

#include <memory>
#include <string>

namespace KelSDK::Common
{
class IProgressDelegate;
}
namespace KelSDK::Triangles::Data
{
class MStlBase;
}

namespace KelSDK::Triangles::IO::MStlBaseFileUtilities
{
// Reads an ASCII or binary STL file into the mesh; false when the file cannot be read or built.
KELSDK_TRIANGLES_IO_EXPORT bool ReadStl(KelSDK::Triangles::Data::MStlBase* stl, const std::wstring& name,
                                        const MStlReadOptions& options,
                                        std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);
// Reads an STL file whose coordinates are millimetres onto the internal unit grid; false on failure.
KELSDK_TRIANGLES_IO_EXPORT bool ReadStlMM(KelSDK::Triangles::Data::MStlBase* stl, const std::wstring& name);
// Writes the mesh as STL with the given options; false when the file cannot be written.
KELSDK_TRIANGLES_IO_EXPORT bool WriteStl(const KelSDK::Triangles::Data::MStlBase* mesh,
                                         const std::wstring& fileName, const MStlWriteOptions& options,
                                         std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);
// Writes the mesh as binary STL in millimetres with colours; false on failure.
KELSDK_TRIANGLES_IO_EXPORT bool WriteStlMM(const KelSDK::Triangles::Data::MStlBase* mesh,
                                           const std::wstring& fileName);
} // namespace KelSDK::Triangles::IO::MStlBaseFileUtilities
