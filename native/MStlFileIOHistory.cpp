// History and registered points sections of the native mesh format.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

void WriteHistoryRecord(KelSDK::FileIO::MFile& file, const MHistory& history)
{
    const unsigned char begin = NativeTags::kHistoryBegin, end = NativeTags::kHistoryEnd;
    file.WRITE(&begin, 1);
    const uint32_t count = static_cast<uint32_t>(history.GetNumEntries());
    file.WRITE(&count, 1);
    for (const MHistoryEntry& entry : history.Entries())
    {
        file.WRITE_STRING_RAW(entry.operation.c_str());
        file.WRITE_STRING_RAW(entry.parameters.c_str());
        const int64_t time = entry.time;
        file.WRITE(&time, 1);
        file.WRITE_STRING_RAW(entry.user.c_str());
    }
    file.WRITE(&end, 1);
}

bool ReadHistoryRecord(KelSDK::FileIO::MFile& file, MHistory& history, uint64_t bytesLeft)
{
    const int64_t start = file.Tell();
    const auto used = [&file, start] { return static_cast<uint64_t>(file.Tell() - start); };
    unsigned char tag = 0;
    uint32_t count = 0;
    // A record takes at least 6 bytes (two tags and the count), an entry at least 20 (three
    // string lengths and the time).
    if (bytesLeft < 6 || !file.READ(&tag, 1) || tag != NativeTags::kHistoryBegin || !file.READ(&count, 1) ||
        count > (bytesLeft - 6) / 20)
        return false;
    history.Clear();
    for (uint32_t i = 0; i < count; ++i)
    {
        MHistoryEntry entry;
        int64_t time = 0;
        if (!ReadText(file, entry.operation) || !ReadText(file, entry.parameters) || !file.READ(&time, 1) ||
            !ReadText(file, entry.user) || used() > bytesLeft)
            return false;
        entry.time = time;
        history.AddEntry(std::move(entry));
    }
    return used() < bytesLeft && file.READ(&tag, 1) && tag == NativeTags::kHistoryEnd;
}

MStlFileIO::MErrorCode MStlFileIO::_SaveStlHistory(MStlBase& mesh)
{
    WriteHistoryRecord(*file_, mesh.GetHistory());
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlHistory(MStlBase& mesh)
{
    if (!ReadHistoryRecord(*file_, mesh.GetHistory(), _Remaining()))
        return _SetError(eStlFileIOBadFormat);
    return eStlFileIOSuccess;
}

// Registered points:
//   u8 52 | u32 count | per point: i32 x, i32 y, i32 z, u32 identifier, wide name | u8 53
// Loading replaces the registered points of the mesh.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlRegisteredPoints(MStlBase& mesh)
{
    SaveTag(NativeTags::kRegisteredPointsBegin);
    const MStlRegisteredPoints& points = mesh.GetRegisteredPoints();
    const uint32_t count = static_cast<uint32_t>(points.GetNumPoints());
    file_->WRITE(&count, 1);
    for (const MStlRegisteredPoint& p : points.Points())
    {
        const int xyz[3] = {p.x, p.y, p.z};
        file_->WRITE(xyz, 3);
        file_->WRITE(&p.id, 1);
        file_->WRITE_STRING_RAW(p.name.c_str());
    }
    SaveTag(NativeTags::kRegisteredPointsEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlRegisteredPoints(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kRegisteredPointsBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    // A point takes at least 20 bytes.
    if (_FileFailed() || count > _Remaining() / 20)
        return _SetError(eStlFileIOBadFormat);
    MStlRegisteredPoints& points = mesh.GetRegisteredPoints();
    points.Clear();
    for (uint32_t i = 0; i < count; ++i)
    {
        MStlRegisteredPoint p;
        int xyz[3] = {0, 0, 0};
        if (!file_->READ(xyz, 3) || !file_->READ(&p.id, 1) || !ReadText(*file_, p.name))
            return _SetError(eStlFileIOBadFormat);
        p.x = xyz[0];
        p.y = xyz[1];
        p.z = xyz[2];
        points.AddPoint(std::move(p));
    }
    return _SetError(LoadTag(NativeTags::kRegisteredPointsEnd));
}
} // namespace KelSDK::Triangles::IO
