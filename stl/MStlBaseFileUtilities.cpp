#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/IO/MStlBaseFileUtilities.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>

#include <cmath>

namespace KelSDK::Triangles::IO::MStlBaseFileUtilities
{
namespace
{
// The internal units per millimetre as a whole number: nearest integer, halves away from zero,
// clamped to the signed 32-bit range.
double WholeStepsPerMillimetre()
{
    double steps = std::round(KelSDK::Common::MInternalUnits::Get());
    if (!(steps >= -2147483648.0))
        steps = -2147483648.0;
    if (steps > 2147483647.0)
        steps = 2147483647.0;
    return static_cast<double>(static_cast<int32_t>(steps));
}
} // namespace

bool ReadStl(KelSDK::Triangles::Data::MStlBase* stl, const std::wstring& name, const MStlReadOptions& options,
             std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    MStlFileReader reader(options);
    reader.SetFileName(name);
    reader.SetTargetStl(stl);
    return reader.Read(std::move(progress));
}

bool ReadStlMM(KelSDK::Triangles::Data::MStlBase* stl, const std::wstring& name)
{
    MStlReadOptions options;
    options.transformationMode = 0;
    options.referencePoint = KelSDK::Math::point<double, 3>(0.0, 0.0, 0.0);
    options.scale = WholeStepsPerMillimetre();
    return ReadStl(stl, name, options, nullptr);
}

bool WriteStl(const KelSDK::Triangles::Data::MStlBase* mesh, const std::wstring& fileName,
              const MStlWriteOptions& options, std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    MStlFileWriter writer(options);
    writer.SetFileName(fileName.c_str());
    writer.SetStlToWrite(mesh);
    return writer.Write(std::move(progress));
}

bool WriteStlMM(const KelSDK::Triangles::Data::MStlBase* mesh, const std::wstring& fileName)
{
    return WriteStl(mesh, fileName,
                    MStlWriteOptions(1.0 / KelSDK::Common::MInternalUnits::Get(), true, true, false),
                    nullptr);
}
} // namespace KelSDK::Triangles::IO::MStlBaseFileUtilities
