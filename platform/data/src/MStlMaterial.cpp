#include <KelSDK/Triangles/Data/MStlMaterial.h>

namespace KelSDK::Triangles::Data
{
uint32_t MStlMaterial::GetWord(int index) const
{
    switch (index)
    {
    case 0:
        return diffuse_;
    case 1:
        return color_;
    case 2:
        return specular_;
    case 3:
        return ambient_;
    default:
        return 0;
    }
}

void MStlMaterial::SetWord(int index, uint32_t value)
{
    switch (index)
    {
    case 0:
        diffuse_ = value;
        break;
    case 1:
        color_ = value;
        break;
    case 2:
        specular_ = value;
        break;
    case 3:
        ambient_ = value;
        break;
    default:
        break;
    }
}
} // namespace KelSDK::Triangles::Data
