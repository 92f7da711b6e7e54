// Questions about STL input: flavour, size consistency, and a transformation that fits the grid.
#pragma once

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>

#include <fstream>
#include <iosfwd>
#include <string>

namespace KelSDK::Triangles::IO::StlFileUtilities
{
// True when the first 300 bytes look like ASCII STL; the stream position is restored (false also
// when the stream cannot be measured or read).
KELSDK_TRIANGLES_IO_EXPORT bool IsAscii(std::istream& stream);
// IsAscii on the named file; false when it cannot be opened.
KELSDK_TRIANGLES_IO_EXPORT bool IsAscii(const std::wstring& fileName);
// True for ASCII files and for binary files whose size matches the chain of counts and facets.
KELSDK_TRIANGLES_IO_EXPORT bool VerifyHeaderConsistency(const std::wstring& fileName);
// No offset and the given scale when the box fits the signed 32-bit grid; otherwise centred on
// referencePoint with the scale divided by powers of ten until it fits.
KELSDK_TRIANGLES_IO_EXPORT MStlReadTransformation
SuggestReadTransformation(const KelSDK::Math::boundingbox<double, 3>& box,
                          const KelSDK::Math::point<double, 3>& referencePoint, double scale);
// Opens a file by wide name for binary reading (shared reading on Windows); false when it fails.
KELSDK_TRIANGLES_IO_EXPORT bool OpenInputFile(std::ifstream& stream, const std::wstring& fileName);
} // namespace KelSDK::Triangles::IO::StlFileUtilities
