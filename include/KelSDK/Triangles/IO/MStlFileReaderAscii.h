// Reads an ASCII STL text into one facet list per solid, with the solids' names.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::Common
{
class IProgressDelegate;
}

namespace KelSDK::Triangles::IO
{
namespace Detail
{
class TextFacetSink;
}
class MStlFileReader;

class KELSDK_TRIANGLES_IO_EXPORT MStlFileReaderAscii
{
public:
    enum EReturnCode : int
    {
        Success = 0,     // at least one solid was found
        NoSolidFound = 1 // no "solid" keyword in the whole text
    };

    // Reads from stream (not owned; must outlive the reader).
    explicit MStlFileReaderAscii(std::istream& stream);

    // Appends one facet list and one name per solid; throws std::runtime_error("Can't convert
    // double") on a malformed number inside a facet (the lists keep what was read before).
    EReturnCode Read(std::vector<std::vector<MStlFileTriangle>>& facets, std::vector<std::string>& names,
                     std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);

private:
    friend class MStlFileReader;
    // Read into any facet sink (the read driver's lean store).
    EReturnCode _Read(Detail::TextFacetSink& sink, std::vector<std::string>& names,
                      std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);

    std::istream& stream_;
};
} // namespace KelSDK::Triangles::IO
