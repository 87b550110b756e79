#include "VolumeService.h"

#include <unistd.h>

#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <stdexcept>
#include <xercesc/dom/DOMNode.hpp>

#include "ElementText.h"
#include "RealPath.h"
#include "common/Protocol.h"
#include "common/XmlText.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/Directory.h"
#include "tovu/util/Format.h"
#include "tovu/util/GUID.h"
#include "tovu/util/Socket.h"
#include "tovu/util/StatusParams.h"
#include "tovu/util/XercesUtils.h"

namespace volume {

using namespace tovu::util;
using xercesc::DOMNode;

namespace {

constexpr unsigned MOST_GUIDS = 1000;

std::string RequiredAttribute(DOMNode const& element, char const* name)
{
    std::string text = AttributeText(element, name);
    if (text.empty())
        throw Refusal{ERROR_ARGUMENT};
    return text;
}

std::string Echo(DOMNode const& element)
{
    return "<Echo>" + ContentText(element) + "</Echo>";
}

std::string List(DOMNode const& element)
{
    std::string const path = RequiredAttribute(element, "path");
    Directory folder(path);
    Directory::Entry entry;
    bool more = folder.GetFirstEntry(entry);
    if (!more)  // an open folder has at least itself and its parent
        throw Refusal{ERROR_NOT_FOUND};

    std::string answer = "<Listing path=\"" + EscapeAttribute(path) + "\">";
    for (; more; more = folder.GetNextEntry(entry)) {
        bool const vanished = entry.name.empty();
        if (vanished || entry.name == "." || entry.name == "..")
            continue;
        entry.name = EscapeName(entry.name);  // ToString writes it as it is
        answer += entry.ToString(0);
    }
    return answer + "</Listing>";
}

unsigned CountOf(DOMNode const& element)
{
    std::string const text = AttributeText(element, "count");
    unsigned count = 1;
    bool const isNumber = text.find_first_not_of("0123456789") == std::string::npos;
    if (!text.empty() && (!isNumber || !boost::conversion::try_lexical_convert(text, count)))
        throw Refusal{ERROR_ARGUMENT};
    if (count == 0 || count > MOST_GUIDS)
        throw Refusal{ERROR_ARGUMENT};
    return count;
}

std::string MakeGuid(DOMNode const& element)
{
    std::string answer = "<Guids>";
    for (unsigned remaining = CountOf(element); remaining != 0; --remaining)
        answer += "<Guid>" + GUID::FromRandom().ToString() + "</Guid>";
    return answer + "</Guids>";
}

// A program that cannot be started would only be found out in the new process, which can do little to tell.
void RequirePrograms(JobPrograms const& programs)
{
    for (auto const& program : programs) {
        // cppcheck-suppress useStlAlgorithm ; the first that cannot be run is also named
        if (access(program.second.front().c_str(), X_OK) == -1)
            throw std::runtime_error("the program of job " + program.first +
                                     " cannot be run: " + program.second.front());
    }
}

void RequireFolder(std::string const& folder)
{
    if (!folder.empty() && Directory::Entry(folder).type != Directory::Entry::TYPE_FOLDER)
        throw std::runtime_error("there is no folder " + folder);
}

}  // namespace

VolumeService::VolumeService(Options const& options)
    : options_(options),
      handlers_{{"Echo", &Echo},
                {"GetInfo", [](DOMNode const& /*element*/) { return DescribeService("Info", ""); }},
                {"List", &List},
                {"Status", [this](DOMNode const& element) { return Status(element); }},
                {"MakeGuid", &MakeGuid},
                {"RunJob", [this](DOMNode const& element) { return RunJob(element); }},
                {"CancelJob", [this](DOMNode const& element) { return CancelJob(element); }}}
{
    RequirePrograms(options_.jobs);
    RequireFolder(options_.sendFolder);
    RequireFolder(options_.plugins);
    if (!options_.database.empty())
        VolumeDatabase const usable(options_.database);
}

void VolumeService::Start()
{
    if (!options_.database.empty())
        database_ = std::make_unique<VolumeDatabase>(options_.database);
    if (!options_.plugins.empty())
        plugins_.Load(options_.plugins);
    jobs_ = std::make_unique<Jobs>(options_.jobs);
}

void VolumeService::Stop()
{
    if (jobs_)
        jobs_->Stop();
}

bool VolumeService::IsHandled(std::string const& name) const
{
    return handlers_.count(name) != 0 || plugins_.Find(name) != nullptr;
}

std::string VolumeService::Handle(DOMNode const& element)
{
    std::string const name = XMLCh2string(element.getNodeName());
    auto const handler = handlers_.find(name);
    if (handler != handlers_.end())
        return handler->second(element);
    return plugins_.Find(name)->Handle(element);
}

// The registry knows a volume by one path, whatever the client calls it; and only what exists gets an entry.
std::string VolumeService::Status(DOMNode const& element)
{
    std::string const volume = RealPath(RequiredAttribute(element, "volume"));
    if (volume.empty())
        throw Refusal{ERROR_NOT_FOUND};

    StatusParams::IsVolumeLowOnDiskSpace(VolumeHandle(database_.get(), volume), volume);
    if (database_)
        database_->CountQuestion(volume);

    StatusParams::DISK_INFO info;
    StatusParams::InitDiskInfoStruct(info);
    StatusParams::GetDiskInfo(volume, info);
    return FormatString(R"(<Status volume="%s" freeSpace="%llu" status="%s" action="%s"/>)", EscapeName(volume).c_str(),
                        StatusParams::GetRemainingDiskSpace(volume), info.status.c_str(), info.action.c_str());
}

std::string VolumeService::RunJob(DOMNode const& element)
{
    std::string const name = RequiredAttribute(element, "name");
    JobOutcome const outcome = jobs_->Run(name);
    std::string const escaped = EscapeAttribute(name);
    if (outcome.cancelled)
        return FormatString(R"(<Job name="%s" cancelled="true"/>)", escaped.c_str());
    return FormatString(R"(<Job name="%s" result="%d" status="%d"/>)", escaped.c_str(), outcome.result, outcome.status);
}

std::string VolumeService::CancelJob(DOMNode const& element)
{
    std::string const name = RequiredAttribute(element, "name");
    if (!jobs_->Cancel(name))
        throw Refusal{ERROR_NOT_FOUND};
    return "<Cancelled name=\"" + EscapeAttribute(name) + "\"/>";
}

std::string DescribeService(char const* name, std::string const& more)
{
    return FormatString(R"(<%s hostName="%s" processId="%d" version="%s"%s/>)", name,
                        EscapeAttribute(Socket::GetHostName()).c_str(), static_cast<int>(getpid()), Version(),
                        more.c_str());
}

}  // namespace volume
