// Out-of-line destructor of the persistence interface (anchors its vtable in this library).
#include <KelSDK/Triangles/IO/IStlFileIOPersist.h>

namespace KelSDK::Triangles::IO
{
IStlFileIOPersist::~IStlFileIOPersist() = default;
} // namespace KelSDK::Triangles::IO
