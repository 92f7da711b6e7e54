// The exceptions of the tag-stream library. what() says what was wrong, in English.
#pragma once

#include <KelSAX/Export.h>
#include <stdexcept>
#include <string>

namespace KelSAX::MSAXError
{
// Base of every exception thrown by KelSAX.
struct KELSAX_EXPORT MSAXException : std::runtime_error
{
    using std::runtime_error::runtime_error;
    ~MSAXException() override;
};

// A document that cannot be read: not a KelSAX file, malformed or hostile XML or archive, a
// damaged binary value, a limit exceeded, a file that cannot be opened, a cancelled read.
struct KELSAX_EXPORT MGenericRead : MSAXException
{
    using MSAXException::MSAXException;
    ~MGenericRead() override;
};

// A well-formed document written in a tag-stream format version this library cannot read (see
// kFormatMajor in SAXTypes.h).
struct KELSAX_EXPORT MSAXIncompatibleVersion : MSAXException
{
    using MSAXException::MSAXException;
    ~MSAXIncompatibleVersion() override;
};
} // namespace KelSAX::MSAXError
