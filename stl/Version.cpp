#include <KelSDK/Triangles/IO/Version.h>

namespace KelSDK::Triangles::IO
{
const char* GetLibraryVersion()
{
    return "0.1.0";
}
}
