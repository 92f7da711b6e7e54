// History and registered points sections of the native mesh format.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

// History, oldest entry first:
//   u8 50 | u32 entry count | per entry: wide operation, wide parameters, i64 time (seconds
//   since 1970-01-01 UTC), wide user | u8 51
// Loading replaces the history of the mesh.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlHistory(MStlBase& mesh)
{
    SaveTag(NativeTags::kHistoryBegin);
    const MHistory& history = mesh.GetHistory();
    const uint32_t count = static_cast<uint32_t>(history.GetNumEntries());
    file_->WRITE(&count, 1);
    for (const MHistoryEntry& entry : history.Entries())
    {
        file_->WRITE_STRING_RAW(entry.operation.c_str());
        file_->WRITE_STRING_RAW(entry.parameters.c_str());
        const int64_t time = entry.time;
        file_->WRITE(&time, 1);
        file_->WRITE_STRING_RAW(entry.user.c_str());
    }
    SaveTag(NativeTags::kHistoryEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlHistory(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kHistoryBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    // An entry takes at least 20 bytes (three string lengths and the time).
    if (_FileFailed() || count > _Remaining() / 20)
        return _SetError(eStlFileIOBadFormat);
    MHistory& history = mesh.GetHistory();
    history.Clear();
    for (uint32_t i = 0; i < count; ++i)
    {
        MHistoryEntry entry;
        int64_t time = 0;
        if (!file_->READ_STRING_RAW(entry.operation) || !file_->READ_STRING_RAW(entry.parameters) ||
            !file_->READ(&time, 1) || !file_->READ_STRING_RAW(entry.user))
            return _SetError(eStlFileIOBadFormat);
        entry.time = time;
        history.AddEntry(std::move(entry));
    }
    return _SetError(LoadTag(NativeTags::kHistoryEnd));
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
        if (!file_->READ(xyz, 3) || !file_->READ(&p.id, 1) || !file_->READ_STRING_RAW(p.name))
            return _SetError(eStlFileIOBadFormat);
        p.x = xyz[0];
        p.y = xyz[1];
        p.z = xyz[2];
        points.AddPoint(std::move(p));
    }
    return _SetError(LoadTag(NativeTags::kRegisteredPointsEnd));
}
} // namespace KelSDK::Triangles::IO
