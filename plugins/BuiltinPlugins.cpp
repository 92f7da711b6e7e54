#include "BuiltinPlugins.h"

#include <KelSDK/Triangles/IO/MStlBaseElementInfoMStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlRevisionFileIO.h>
#include <KelSDK/Triangles/IO/MStlTextureFileIO.h>
#include <KelSDK/Triangles/IO/SurfaceZonesMStlFileIOPlugin.h>
#include <KelSDK/Triangles/IO/UVMapListFileIOPlugin.h>

namespace KelSDK::Triangles::IO
{
void EnsureBuiltinPlugins()
{
    // Function-local statics are constructed once, under the compiler's guard; each plug-in
    // registers itself in its base constructor.
    static const bool registered = []
    {
        static MStlBaseElementInfoMStlFileIOPlugin elementInfo;
        static MStlTextureFileIOPlugin textures;
        static MStlRevisionSystem::MRevisionFileIO revisionInfo;
        static SurfaceZonesMStlFileIOPlugin surfaceZones;
        static UVMapListFileIOPlugin uvMaps;
        return true;
    }();
    (void)registered;
}
} // namespace KelSDK::Triangles::IO
