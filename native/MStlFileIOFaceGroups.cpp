// Face group section of the native mesh format.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

// Layout:
//   u8 202 | bool has face groups | when true: one u32 face identifier per triangle in triangle
//   order | u8 203
// No count is stored: the reader takes the number of triangles the mesh holds by then.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlFaceGroupInfo(MStlBase& mesh)
{
    SaveTag(NativeTags::kFaceGroupsBegin);
    const MStlBaseFaceGroupInfo* info = mesh.GetFaceGroupInfo();
    const bool present = info != nullptr;
    file_->WRITE(&present, 1);
    if (present)
    {
        std::vector<uint32_t> ids;
        ids.reserve(mesh.NumberOfTriangles());
        if (mesh.GetStlHybrid().GetState() == eStlStandard)
            for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle(); ++it)
                ids.push_back(info->GetFaceID(*it));
        else
            for (size_t i = 0; i < mesh.NumberOfTriangles(); ++i)
                ids.push_back(info->GetFaceID(i));
        file_->WRITE(ids.data(), ids.size());
    }
    SaveTag(NativeTags::kFaceGroupsEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlFaceGroupInfo(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kFaceGroupsBegin) != eStlFileIOSuccess)
        return lastError_;
    _SetError(eStlFileIOSuccess);
    mesh.DeleteFaceGroupInfo();
    bool present = false;
    file_->READ(&present, 1);
    if (present)
    {
        const size_t count = mesh.NumberOfTriangles();
        if (count > _Remaining() / 4)
            return _SetError(eStlFileIOBadFormat);
        std::vector<uint32_t> ids(count);
        file_->READ(ids.data(), ids.size());
        MStlBaseFaceGroupInfo* info = mesh._CreateFaceGroupInfo();
        if (mesh.GetStlHybrid().GetState() == eStlStandard)
        {
            size_t i = 0;
            for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && i < count; ++it)
                info->SetFaceID(*it, ids[i++]);
        }
        else
        {
            for (size_t i = 0; i < count; ++i)
                info->SetFaceID(i, ids[i]);
        }
    }
    return _SetError(LoadTag(NativeTags::kFaceGroupsEnd));
}
} // namespace KelSDK::Triangles::IO
