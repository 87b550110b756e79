#include "DestructorGuard.h"

#include <exception>
#include <string>
#include <xercesc/util/XMLException.hpp>

#include "tovu/util/Exception.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util { namespace internal {

namespace {

// The text of the exception being handled: the library's own with its trail, the others by the little they tell.
std::string DescribeCaughtException()
{
    try {
        throw;
    } catch (Exception const& exception) {
        return exception.Report();
    } catch (std::exception const& exception) {
        return exception.what();
    } catch (xercesc::XMLException const& exception) {
        return XMLCh2string(exception.getMessage());
    } catch (...) {
        return "Caught unknown exception!";
    }
}

}  // namespace

void LogDestructorFailure(char const* file, unsigned line) noexcept
{
    try {
        LoggerMgr& manager = LoggerMgr::Instance();
        if (LoggerMgr::LEVEL_ERROR <= manager.GetLevel())
            manager.Log(LoggerMgr::LEVEL_ERROR, file, line, "%s\n", DescribeCaughtException().c_str());
    } catch (...) {
        return;
    }
}

}}}  // namespace tovu::util::internal
