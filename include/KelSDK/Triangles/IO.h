// KelSDK.Triangles.IO: reading and writing triangle meshes (STL, the native format, projects).
#pragma once

#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/Version.h>
