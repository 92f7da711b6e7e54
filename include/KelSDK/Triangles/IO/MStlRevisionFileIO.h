// The "RevisionInfo" plug-in of the native mesh format: the identity card of a mesh, with the
// cards of the meshes it was made from.
#pragma once

#include <KelSDK/Triangles/Data/MStlRevisionSystem.h>
#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

#include <cstdint>

namespace KelSDK::FileIO
{
class MFile;
}

namespace KelSDK::Triangles::IO
{
class PayloadReader;

namespace MStlRevisionSystem
{
using KelSDK::Triangles::Data::MStlRevisionSystem::MGlobalGuid;
using KelSDK::Triangles::Data::MStlRevisionSystem::MGuid;
using KelSDK::Triangles::Data::MStlRevisionSystem::MIDCard;
using KelSDK::Triangles::Data::MStlRevisionSystem::MRevDatabase;
using KelSDK::Triangles::Data::MStlRevisionSystem::MRevGuid;

// Writes or reads one card record (and, recursively, its parents) through a file. Cards nested
// deeper than kMaxDepth levels are written without parents and end the record on reading, so
// that no file can make reading recurse without bound. Read and Write return true; a read stops
// at the first value that is missing, does not fit the bytes left or is not an identifier, and
// the card keeps what was read until then. No throw except std::bad_alloc.
class KELSDK_TRIANGLES_IO_EXPORT MIDCardBinaryDumper
{
public:
    static constexpr int kMaxDepth = 100;

    MIDCardBinaryDumper(MIDCard& card, KelSDK::FileIO::MFile* file, bool withHistory);
    // Reading never passes this absolute file position (by default the end of the file).
    void SetReadEnd(int64_t end) { readEnd_ = end; }

    MIDCard& GetIDCard() { return card_; }
    // The record's version: 1 when writing, the file's after reading.
    int32_t GetVersion() const { return version_; }
    bool Read();
    bool Write();

protected:
    bool _ReadGlobalGuid(PayloadReader& reader);
    void _WriteGlobalGuid();
    bool _ReadRevisionInfo(PayloadReader& reader);
    void _WriteRevisionInfo();
    bool _ReadHistory(PayloadReader& reader);
    void _WriteHistory();
    bool _ReadParentIDCards(PayloadReader& reader);
    void _WriteParentIDCards();

private:
    bool _Read(PayloadReader& reader);
    // An identifier block: u32 number, the identifier's text as a wide string.
    bool _ReadIdentifier(PayloadReader& reader, MGuid& guid, uint32_t& number);
    void _WriteIdentifier(const MGuid& guid, uint32_t number);

    int32_t version_ = 1;
    MIDCard& card_;
    KelSDK::FileIO::MFile* file_;
    bool withHistory_;
    int64_t readEnd_ = -1;
    int depth_ = 0;
};

// The registered plug-in "RevisionInfo", save/load order 0: the mesh's own card without its
// history (its parents with theirs). Loading replaces the card's identifiers, revision and
// parents; a committed revision is recorded in MRevDatabase.
class KELSDK_TRIANGLES_IO_EXPORT MRevisionFileIO : public MStlFileIOPlugin
{
public:
    MRevisionFileIO();
    ~MRevisionFileIO() override;
    const wchar_t* GetName() const override { return L"RevisionInfo"; }
    void SaveData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* writer) override;
    void LoadData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* reader) override;
};
} // namespace MStlRevisionSystem
} // namespace KelSDK::Triangles::IO
