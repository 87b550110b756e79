#pragma once

namespace volume {

/// What a look at the start of a document says, before any parser sees it.
enum class Prolog
{
    Accepted,      ///< A document element follows, in an encoding whose "<" is that of ASCII.
    Malformed,     ///< No parser could read it; also for a version of XML that none knows.
    DocumentType,  ///< It has a document type declaration, or something that looks like one.
    Encoding       ///< It is in an encoding in which a look at the bytes proves nothing, or says that it is.
};

/// Looks at everything in front of the document element: byte order mark, XML declaration, comments, processing
/// instructions.
///
/// A DTD makes the parser read files and follow addresses for the sender, and grow a kilobyte to gigabytes; so it is to
/// be refused before. Other encodings than UTF-8, US-ASCII and ISO-8859-1 are refused with it, since in some of them
/// "<!DOCTYPE" can be written in other bytes. A parser tells UTF-16 and UTF-32 by their zero bytes without being told:
/// a document with a zero byte anywhere is one of those.
Prolog InspectProlog(unsigned char const* data, unsigned length);

}  // namespace volume
