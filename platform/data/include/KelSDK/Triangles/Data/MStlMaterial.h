// Surface material of a mesh: five 32-bit fields in declared order plus a read-from-file flag.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <cstdint>

namespace KelSDK::Triangles::Data
{
// Field order (also the order of the positional accessors GetWord(0..3)):
//   diffuse (uint32), colour (uint32 RGBA: red lowest byte, alpha in the top byte),
//   specular (uint32), ambient (uint32), shininess (float).
// The coloured STL header stores after "COLOR=" the colour word as R, G, B, A bytes.
class KELSDK_TRIANGLES_DATA_EXPORT MStlMaterial
{
public:
    // Grey opaque colour, no diffuse/specular/ambient words, shininess 0, not read from file.
    MStlMaterial() = default;

    uint32_t GetDiffuse() const { return diffuse_; }
    void SetDiffuse(uint32_t v) { diffuse_ = v; }
    // Colour word 0xAABBGGRR.
    uint32_t GetRGB() const { return color_; }
    void SetRGB(uint32_t rgba) { color_ = rgba; }
    uint32_t GetSpecular() const { return specular_; }
    void SetSpecular(uint32_t v) { specular_ = v; }
    uint32_t GetAmbient() const { return ambient_; }
    void SetAmbient(uint32_t v) { ambient_ = v; }
    float GetShininess() const { return shininess_; }
    void SetShininess(float v) { shininess_ = v; }

    // True when the material came from a file (an STL header colour or a native colour section).
    bool GetColorIsReadFromFile() const { return colorIsReadFromFile_; }
    void SetColorIsReadFromFile(bool v) { colorIsReadFromFile_ = v; }

    // The four 32-bit words by position: 0 diffuse, 1 colour, 2 specular, 3 ambient.
    uint32_t GetWord(int index) const;
    void SetWord(int index, uint32_t value);

    friend bool operator==(const MStlMaterial& a, const MStlMaterial& b)
    {
        return a.diffuse_ == b.diffuse_ && a.color_ == b.color_ && a.specular_ == b.specular_ &&
               a.ambient_ == b.ambient_ && a.shininess_ == b.shininess_ &&
               a.colorIsReadFromFile_ == b.colorIsReadFromFile_;
    }
    friend bool operator!=(const MStlMaterial& a, const MStlMaterial& b) { return !(a == b); }

private:
    uint32_t diffuse_ = 0;
    uint32_t color_ = 0xFF808080u;
    uint32_t specular_ = 0;
    uint32_t ambient_ = 0;
    float shininess_ = 0.0f;
    bool colorIsReadFromFile_ = false;
};
} // namespace KelSDK::Triangles::Data
