// Enumerations shared by the reader and the writer of the tag-stream library.
#pragma once

#include <cstdint>

namespace KelSAX
{
// Protection of an archive. Neither level encrypts: eEncryptionStandard is accepted for the
// applications that ask for it and writes the same unencrypted archive as eEncryptionNone (the
// format keeps the level so that a real cipher can be added without changing callers). XML
// documents are never encrypted.
enum EEncryptionLevel : int32_t
{
    eEncryptionNone = 0,
    eEncryptionStandard = 1
};

// Deflate level of the archive entries that hold the document and compressed binary values:
// -1 is zlib's default (6), 0 stores, 1 is the fastest, 9 the smallest. Other values are clamped
// to -1..9. XML documents ignore it.
enum ESAXCompressionLevel : int32_t
{
    eSAXCompressionDefault = -1,
    eSAXCompressionNone = 0,
    eSAXCompressionFastest = 1,
    eSAXCompressionBest = 9
};

// The kind of context SAXContextsFactory::CreateSAXContext makes.
enum ESAXContextFactoryType : int32_t
{
    eSAXContextPlain = 0,   // an ISAXContext
    eSAXContextDatabase = 1 // an ISAXDatabaseContext
};

// Version of the tag-stream format this library writes ("major.minor" on the document's root
// element). A reader refuses a document whose major version is above kFormatMajor with
// MSAXError::MSAXIncompatibleVersion and reads any minor version of its own major (newer minor
// versions only add elements, which an older reader skips).
inline constexpr int32_t kFormatMajor = 1;
inline constexpr int32_t kFormatMinor = 0;
} // namespace KelSAX
