// What does a logged line cost its caller, what the whole process, and how fast do lines come through until the last
// one has reached the sink? Beside it the asynchronous loggers of spdlog, Boost and POCO with the same fields and a sink
// that takes the finished line and drops it as ours does; spdlog with its default queue and with one that never fills. One
// iteration logs LINES lines from as many threads as the name says. And what does a call cost whose level is not wanted?

#include "tovu/util/LoggerMgr.h"

#include <Poco/AsyncChannel.h>
#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Format.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Message.h>
#include <Poco/PatternFormatter.h>
#include <benchmark/benchmark.h>
#include <semaphore.h>
#include <spdlog/async_logger.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>

#include <algorithm>
#include <atomic>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sources/logger.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/log/utility/manipulators/add_value.hpp>
#include <boost/smart_ptr/make_shared.hpp>
#include <cctype>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using tovu::util::Logger;
using tovu::util::LoggerMgr;

namespace {

constexpr unsigned LINES = 24000;
constexpr std::size_t DEFAULT_QUEUE = 8192;  // of spdlog
constexpr std::size_t LARGE_QUEUE = 32768;   // has room for an iteration
constexpr unsigned LOCATED_LINE = LoggerMgr::HEADER_TIME | LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION;
constexpr unsigned EVERY_FIELD = 0xff;

constexpr char const* FILE_NAME = "src/util/Volume.cpp";
constexpr int LINE = 123;

double SecondsOf(clockid_t clock)
{
    timespec now = {0, 0};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The lines that have reached a sink.
class Arrivals
{
public:
    Arrivals() { sem_init(&complete_, 0, 0); }
    Arrivals(Arrivals const&) = delete;
    Arrivals& operator=(Arrivals const&) = delete;

    // Makes WaitForAll return once so many more have come.
    void Expect(unsigned count) { missing_ = count; }

    void WaitForAll()
    {
        while (sem_wait(&complete_) != 0) {
        }
    }

    // Keeps the texts of the last one.
    void Add(char const* const header, std::size_t headerSize, char const* const message, std::size_t messageSize)
    {
        benchmark::DoNotOptimize(header);
        benchmark::DoNotOptimize(message);
        if (missing_.fetch_sub(1) != 1)
            return;
        last_.assign(header, headerSize).append(message, messageSize);
        sem_post(&complete_);
    }

    std::string const& GetLast() const { return last_; }

private:
    std::atomic<unsigned> missing_{0};
    std::string last_;
    sem_t complete_;
};

class DroppingSink : public Logger
{
public:
    explicit DroppingSink(Arrivals& arrivals) : arrivals_(arrivals) {}

    void Log(std::string const& header, std::string const& message) override
    {
        arrivals_.Add(header.data(), header.size(), message.data(), message.size());
    }

private:
    Arrivals& arrivals_;
};

class DroppingSpdlogSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex>
{
public:
    explicit DroppingSpdlogSink(Arrivals& arrivals) : arrivals_(arrivals) {}

protected:
    void sink_it_(spdlog::details::log_msg const& message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        arrivals_.Add(line.data(), line.size(), "", 0);
    }
    void flush_() override {}

private:
    Arrivals& arrivals_;
};

// A manager with a thread and a sink; both live until the process ends, as the one manager does.
class Ours
{
public:
    explicit Ours(unsigned flags) : arrivals_(*new Arrivals), manager_(*new LoggerMgr)
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
        manager_.AddLogger(std::auto_ptr<Logger>(new DroppingSink(arrivals_)));
#pragma GCC diagnostic pop
        manager_.Init("volumed", LoggerMgr::LEVEL_INFO, flags, 0);
    }

    Arrivals& GetArrivals()
    {
        return arrivals_;
    }

    // What TOVU_LOG does, with this manager in the place of the one: that has one set of flags for the whole process.
    void LogLine(unsigned number)
    {
        if (LoggerMgr::LEVEL_INFO <= (LoggerMgr::Instance(), manager_).GetLevel())
            (LoggerMgr::Instance(), manager_)
                .Log(LoggerMgr::LEVEL_INFO, FILE_NAME, LINE, "volume %s has %u files\n", "photos", number);
    }

private:
    Arrivals& arrivals_;
    LoggerMgr& manager_;
};

class SpdlogPeer
{
public:
    explicit SpdlogPeer(std::size_t queueSize)
        : pool_(std::make_shared<spdlog::details::thread_pool>(queueSize, 1)),
          logger_(
              std::make_shared<spdlog::async_logger>("volumed", std::make_shared<DroppingSpdlogSink>(arrivals_), pool_))
    {
        logger_->set_pattern("%b %d %T  %l %g:%# %v");
    }

    Arrivals& GetArrivals() { return arrivals_; }

    void LogLine(unsigned number)
    {
        logger_->log(spdlog::source_loc{FILE_NAME, LINE, ""}, spdlog::level::info, "volume {} has {} files", "photos",
                     number);
    }

private:
    Arrivals arrivals_;
    std::shared_ptr<spdlog::details::thread_pool> pool_;
    std::shared_ptr<spdlog::async_logger> logger_;
};

class DroppingBoostSink : public boost::log::sinks::basic_formatted_sink_backend<char>
{
public:
    explicit DroppingBoostSink(Arrivals& arrivals) : arrivals_(arrivals) {}

    void consume(boost::log::record_view const& /*record*/, string_type const& line)
    {
        arrivals_.Add(line.data(), line.size(), "", 0);
    }

private:
    Arrivals& arrivals_;
};

class BoostPeer
{
public:
    BoostPeer() : sink_(boost::make_shared<Sink>(boost::make_shared<DroppingBoostSink>(arrivals_)))
    {
        namespace expr = boost::log::expressions;
        sink_->set_formatter(expr::stream
                             << expr::format_date_time<boost::posix_time::ptime>("TimeStamp", "%b %d %H:%M:%S") << "  "
                             << expr::attr<std::string>("Severity") << ' ' << expr::attr<std::string>("File") << ':'
                             << expr::attr<int>("Line") << ' ' << expr::smessage << '\n');
        boost::log::core::get()->add_global_attribute("TimeStamp", boost::log::attributes::local_clock());
        boost::log::core::get()->add_sink(sink_);
    }

    BoostPeer(BoostPeer const&) = delete;
    BoostPeer& operator=(BoostPeer const&) = delete;

    ~BoostPeer()
    {
        boost::log::core::get()->remove_sink(sink_);
        sink_->stop();
    }

    Arrivals& GetArrivals() { return arrivals_; }

    void LogLine(unsigned number)
    {
        BOOST_LOG(logger_) << boost::log::add_value("Severity", level_) << boost::log::add_value("File", file_)
                           << boost::log::add_value("Line", LINE) << "volume photos has " << number << " files";
    }

private:
    using Sink = boost::log::sinks::asynchronous_sink<DroppingBoostSink>;

    std::string const level_ = "Info";
    std::string const file_ = FILE_NAME;
    Arrivals arrivals_;
    boost::shared_ptr<Sink> sink_;
    boost::log::sources::logger_mt logger_;
};

class DroppingPocoChannel : public Poco::Channel
{
public:
    explicit DroppingPocoChannel(Arrivals& arrivals) : arrivals_(arrivals) {}

    void log(Poco::Message const& message) override
    {
        arrivals_.Add(message.getText().data(), message.getText().size(), "", 0);
    }

private:
    Arrivals& arrivals_;
};

class PocoPeer
{
public:
    PocoPeer()
        : formatter_(new Poco::PatternFormatter("%b %d %H:%M:%S  %p %U:%u %t\n")),
          channel_(new Poco::AsyncChannel(new Poco::FormattingChannel(
              formatter_, Poco::AutoPtr<Poco::Channel>(new DroppingPocoChannel(arrivals_)))))
    {
        formatter_->setProperty("times", "local");
    }

    PocoPeer(PocoPeer const&) = delete;
    PocoPeer& operator=(PocoPeer const&) = delete;
    ~PocoPeer() { channel_->close(); }

    Arrivals& GetArrivals() { return arrivals_; }

    void LogLine(unsigned number)
    {
        channel_->log(Poco::Message("volumed", Poco::format("volume %s has %u files", std::string("photos"), number),
                                    Poco::Message::PRIO_INFORMATION, FILE_NAME, LINE));
    }

private:
    Arrivals arrivals_;
    Poco::AutoPtr<Poco::Formatter> formatter_;
    Poco::AutoPtr<Poco::AsyncChannel> channel_;
};

// Logs a share of the lines, and tells what it has cost the thread.
template <typename Target>
void LogShare(Target& target, unsigned count, double& seconds)
{
    double const start = SecondsOf(CLOCK_THREAD_CPUTIME_ID);
    for (unsigned i = 0; i < count; ++i)
        target.LogLine(i);
    seconds = SecondsOf(CLOCK_THREAD_CPUTIME_ID) - start;
}

template <typename Target>
void LogLines(benchmark::State& state, Target& target)
{
    auto const threadCount = static_cast<unsigned>(state.range(0));
    std::vector<double> callerSeconds(threadCount);
    double callers = 0;
    double process = 0;
    double elapsed = 0;
    for (auto _ : state) {
        double const start = SecondsOf(CLOCK_MONOTONIC);
        double const processStart = SecondsOf(CLOCK_PROCESS_CPUTIME_ID);
        target.GetArrivals().Expect(LINES);
        std::vector<std::thread> threads;
        for (double& seconds : callerSeconds)
            threads.emplace_back([&] { LogShare(target, LINES / threadCount, seconds); });
        for (std::thread& thread : threads)
            thread.join();
        target.GetArrivals().WaitForAll();
        double const iteration = SecondsOf(CLOCK_MONOTONIC) - start;
        state.SetIterationTime(iteration);
        elapsed += iteration;
        process += SecondsOf(CLOCK_PROCESS_CPUTIME_ID) - processStart;
        for (double seconds : callerSeconds)
            callers += seconds;
    }

    double const lines = static_cast<double>(state.iterations()) * LINES;
    state.SetItemsProcessed(static_cast<std::int64_t>(lines));
    state.counters["caller_ns"] = callers / lines * 1e9;
    state.counters["process_ns"] = process / lines * 1e9;
    state.counters["lines_per_second"] = lines / elapsed;
}

template <unsigned Flags>
void LogOurs(benchmark::State& state)
{
    static Ours ours(Flags);
    LogLines(state, ours);
}

// The line without its time, which may have gone on, and with the level in the same word.
template <typename Target>
std::string LineOf(Target& target)
{
    target.GetArrivals().Expect(1);
    target.LogLine(7);
    target.GetArrivals().WaitForAll();
    std::string line = target.GetArrivals().GetLast();
    line.erase(0, std::string("Jan 01 00:00:00").size());
    std::transform(line.begin(), line.end(), line.begin(), [](unsigned char byte) { return std::tolower(byte); });
    std::size_t const level = line.find("information ");
    return level == std::string::npos ? line : line.replace(level, std::string("information").size(), "info");
}

template <typename Peer>
void LogPeer(benchmark::State& state, Peer& peer)
{
    static Ours ours(LOCATED_LINE);
    if (LineOf(ours) != LineOf(peer))
        state.SkipWithError("the lines are not the same");
    LogLines(state, peer);
}

template <std::size_t QueueSize>
void LogSpdlog(benchmark::State& state)
{
    SpdlogPeer peer(QueueSize);
    LogPeer(state, peer);
}

template <typename Peer>
void LogOthers(benchmark::State& state)
{
    Peer peer;
    LogPeer(state, peer);
}

void OfThreads(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("threads")->Arg(1)->Arg(2)->Arg(4)->UseManualTime();
}

BENCHMARK_TEMPLATE(LogOurs, LOCATED_LINE)->Name("LoggerMgr_Log_LocatedLine/tovuutil")->Apply(OfThreads);
BENCHMARK_TEMPLATE(LogSpdlog, DEFAULT_QUEUE)->Name("LoggerMgr_Log_LocatedLine/spdlog")->Apply(OfThreads);
BENCHMARK_TEMPLATE(LogSpdlog, LARGE_QUEUE)->Name("LoggerMgr_Log_LocatedLine/spdlog_largeQueue")->Apply(OfThreads);
BENCHMARK_TEMPLATE(LogOthers, BoostPeer)->Name("LoggerMgr_Log_LocatedLine/Boost")->Apply(OfThreads);
BENCHMARK_TEMPLATE(LogOthers, PocoPeer)->Name("LoggerMgr_Log_LocatedLine/POCO")->Apply(OfThreads);
BENCHMARK_TEMPLATE(LogOurs, EVERY_FIELD)->Name("LoggerMgr_Log_EveryField/tovuutil")->Apply(OfThreads);

void LogSuppressed(benchmark::State& state)
{
    for (auto _ : state)
        TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "volume %s has %u files\n", "photos", 1234u);
}
BENCHMARK(LogSuppressed)->Name("LoggerMgr_Log_Suppressed/tovuutil");

}  // namespace
