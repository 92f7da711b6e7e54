// Abstract persistence interface of the native mesh format: save and load of a whole file.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>

#include <memory>

namespace KelSDK::Common
{
class IProgressDelegate;
}

namespace KelSDK::Triangles::IO
{
// Result of every native-format operation (also reachable as MStlFileIO::MErrorCode).
enum MStlFileIOErrorCode : int
{
    eStlFileIOSuccess = 0,
    eStlFileIONoStl = 1,
    eStlFileIONoFile = 2,
    eStlFileIOFileNotOpen = 3,
    eStlFileIOFileNotOpenForReading = 4,
    eStlFileIOFileNotOpenForWriting = 5,
    eStlFileIOVersionNotSupported = 6,
    eStlFileIOBadFormat = 7,
    eStlFileIOMarkCountMismatch = 9,
    eStlFileIOVisibilityCountMismatch = 10,
    eStlFileIOUnknownReference = 11
};

class KELSDK_TRIANGLES_IO_EXPORT IStlFileIOPersist
{
public:
    virtual ~IStlFileIOPersist();
    // Writes the whole file; returns the error code (0 on success).
    virtual MStlFileIOErrorCode Save(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress) = 0;
    // Reads the whole file; returns the error code (0 on success).
    virtual MStlFileIOErrorCode Load(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress) = 0;
};
} // namespace KelSDK::Triangles::IO
