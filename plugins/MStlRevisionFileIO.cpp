// The "RevisionInfo" plug-in section and the identity card record.
#include "../native/NativeSections.h"
#include "PluginPayload.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlRevisionFileIO.h>

namespace KelSDK::Triangles::IO::MStlRevisionSystem
{
using KelSDK::Triangles::Data::MHistory;

MIDCardBinaryDumper::MIDCardBinaryDumper(MIDCard& card, KelSDK::FileIO::MFile* file, bool withHistory)
    : card_(card), file_(file), withHistory_(withHistory)
{
}

// Card record ("int32" little-endian, "bool" one byte):
//   int32 version (1)
//   u32 0, wide string: the global identifier's text
//   u32 revision number, wide string: the revision identifier's text
//   bool revision up to date | bool committed | u32 committed number (0 when not committed)
//   the history record, only with the history switch (the mesh's own card is written without)
//   u32 parent count | one card record per parent, each with its history
// Identifier texts are those of MGuid::GetString(true, true).
bool MIDCardBinaryDumper::Write()
{
    if (file_ == nullptr)
        return true;
    version_ = 1;
    file_->WRITE(&version_, 1);
    _WriteGlobalGuid();
    _WriteRevisionInfo();
    if (withHistory_)
        _WriteHistory();
    _WriteParentIDCards();
    return true;
}

void MIDCardBinaryDumper::_WriteIdentifier(const MGuid& guid, uint32_t number)
{
    file_->WRITE(&number, 1);
    file_->WRITE_STRING_RAW(guid.GetString(true, true).c_str());
}

void MIDCardBinaryDumper::_WriteGlobalGuid()
{
    _WriteIdentifier(card_.GetGlobalID(), 0);
}

void MIDCardBinaryDumper::_WriteRevisionInfo()
{
    const MRevGuid& revision = card_.GetRevision(false);
    _WriteIdentifier(revision, revision.GetNumber());
    const bool upToDate = card_.RevisionUpToDate();
    const bool committed = MRevDatabase::IsCommitted(revision);
    const uint32_t committedID = committed ? MRevDatabase::GetCommittedID(revision) : 0u;
    file_->WRITE(&upToDate, 1);
    file_->WRITE(&committed, 1);
    file_->WRITE(&committedID, 1);
}

void MIDCardBinaryDumper::_WriteHistory()
{
    const MHistory* history = card_.GetHistory();
    WriteHistoryRecord(*file_, history ? *history : MHistory());
}

void MIDCardBinaryDumper::_WriteParentIDCards()
{
    const uint32_t count = depth_ < kMaxDepth ? static_cast<uint32_t>(card_.GetNumParentIDCards()) : 0u;
    file_->WRITE(&count, 1);
    for (uint32_t i = 0; i < count; ++i)
    {
        MIDCardBinaryDumper parent(*card_.GetParentIDCard(i), file_, true);
        parent.depth_ = depth_ + 1;
        parent.Write();
    }
}

bool MIDCardBinaryDumper::Read()
{
    if (file_ == nullptr)
        return true;
    const int64_t left = readEnd_ < 0 ? file_->GetRemaining() : readEnd_ - file_->Tell();
    PayloadReader reader(*file_, left > 0 ? static_cast<uint64_t>(left) : 0);
    _Read(reader);
    return true;
}

bool MIDCardBinaryDumper::_Read(PayloadReader& reader)
{
    return reader.Read(version_) && _ReadGlobalGuid(reader) && _ReadRevisionInfo(reader) &&
           (!withHistory_ || _ReadHistory(reader)) && _ReadParentIDCards(reader);
}

bool MIDCardBinaryDumper::_ReadIdentifier(PayloadReader& reader, MGuid& guid, uint32_t& number)
{
    std::wstring text;
    if (!reader.Read(number) || !reader.ReadText(text))
        return false;
    if (guid.SetString(text))
        return true;
    reader.Cut();
    return false;
}

bool MIDCardBinaryDumper::_ReadGlobalGuid(PayloadReader& reader)
{
    MGuid guid;
    uint32_t unused = 0;
    if (!_ReadIdentifier(reader, guid, unused))
        return false;
    card_.SetGlobalID(MGlobalGuid(guid));
    return true;
}

bool MIDCardBinaryDumper::_ReadRevisionInfo(PayloadReader& reader)
{
    MGuid guid;
    uint32_t number = 0, committedID = 0;
    bool upToDate = false, committed = false;
    if (!_ReadIdentifier(reader, guid, number) || !reader.Read(upToDate))
        return false;
    const MRevGuid revision(guid, number);
    card_.SetRevision(revision, upToDate, false);
    if (!reader.Read(committed) || !reader.Read(committedID))
        return false;
    if (committed)
        MRevDatabase::SetCommitted(revision, committedID);
    return true;
}

bool MIDCardBinaryDumper::_ReadHistory(PayloadReader& reader)
{
    MHistory history;
    if (!ReadHistoryRecord(reader.File(), history, reader.Left()))
    {
        reader.Cut();
        return false;
    }
    // An empty record stands for a card without history as well.
    if (history.GetNumEntries() == 0)
        card_.RemoveHistory();
    else
        card_.CreateHistory() = std::move(history);
    return true;
}

bool MIDCardBinaryDumper::_ReadParentIDCards(PayloadReader& reader)
{
    uint32_t count = 0;
    if (!reader.Read(count))
        return false;
    card_.ClearParentIDCards();
    if (count > 0 && depth_ >= kMaxDepth)
    {
        reader.Cut();
        return false;
    }
    for (uint32_t i = 0; i < count; ++i)
    {
        MIDCardBinaryDumper parent(*card_._AddParentIDCard(), file_, true);
        parent.depth_ = depth_ + 1;
        if (!parent._Read(reader))
            return false;
    }
    return true;
}

MRevisionFileIO::MRevisionFileIO() : MStlFileIOPlugin(0) {}
MRevisionFileIO::~MRevisionFileIO() = default;

// Payload: the card record of the mesh's card, without its history.
void MRevisionFileIO::SaveData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* writer)
{
    if (MIDCard* card = KelSDK::Triangles::Data::MStlRevisionSystem::GetIDCard(mesh))
        MIDCardBinaryDumper(*card, writer->GetFile(), false).Write();
}

void MRevisionFileIO::LoadData(KelSDK::Triangles::Data::MStlBase* mesh, MStlFileIO* reader)
{
    MIDCard* card = KelSDK::Triangles::Data::MStlRevisionSystem::GetIDCard(mesh);
    if (card == nullptr)
        return;
    MIDCardBinaryDumper dumper(*card, reader->GetFile(), false);
    dumper.SetReadEnd(reader->GetFile()->Tell() + static_cast<int64_t>(reader->GetPluginBytesLeft()));
    dumper.Read();
}
} // namespace KelSDK::Triangles::IO::MStlRevisionSystem
