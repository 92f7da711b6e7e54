// A program outside the source tree that uses the installed package.
#include <KelSDK/Triangles/IO.h>

#include <cstdio>
#include <cstring>

int main()
{
    const char* version = KelSDK::Triangles::IO::GetLibraryVersion();
    KelSDK::Math::point<double, 3> a(1.0, 2.0, 3.0);
    KelSDK::Math::point<double, 3> b(4.0, 5.0, 6.0);
    const double dot = a.dot(b);
    std::printf("KelSDK.Triangles.IO %s, dot = %g\n", version, dot);
    return (std::strlen(version) > 0 && dot == 32.0) ? 0 : 1;
}
