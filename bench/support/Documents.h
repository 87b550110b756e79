#pragma once

#include <string>

namespace bench {

/// A document of exactly that many bytes, at least 100: a list of volumes, and blanks in front of its end.
inline std::string MakeDocument(std::size_t size)
{
    std::string const start = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Volumes>\n";
    std::string const volume = "<Volume name=\"photos\" free=\"1234567\">The pictures &amp; films</Volume>\n";
    std::string const end = "</Volumes>";

    std::string document = start;
    while (document.size() + volume.size() + end.size() <= size)
        document += volume;
    return document.append(size - document.size() - end.size(), ' ') + end;
}

}  // namespace bench
