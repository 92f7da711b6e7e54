#pragma once

#include <KelSDK/Triangles/IO/Export.h>

namespace KelSDK::Triangles::IO
{
// The library's version as "major.minor.patch".
KELSDK_TRIANGLES_IO_EXPORT const char* GetLibraryVersion();
}
