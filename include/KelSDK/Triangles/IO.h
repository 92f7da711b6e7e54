// KelSDK.Triangles.IO: reading and writing triangle meshes (STL, the native format).
// One include for the whole library and the platform libraries beneath it.
#pragma once

#include <KelSDK/Common.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Math.h>
#include <KelSDK/Triangles/Data.h>

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/Version.h>

// STL import and export.
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>
#include <KelSDK/Triangles/IO/MStlReadOptions.h>
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

// The native mesh format.
#include <KelSDK/Triangles/IO/IStlFileIOPersist.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

// The built-in plug-ins of the native format.
#include <KelSDK/Triangles/IO/MStlBaseElementInfoMStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlRevisionFileIO.h>
#include <KelSDK/Triangles/IO/MStlTextureFileIO.h>
#include <KelSDK/Triangles/IO/SurfaceZonesMStlFileIOPlugin.h>
#include <KelSDK/Triangles/IO/UVMapListFileIOPlugin.h>
