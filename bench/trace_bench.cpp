// What logging costs: a trace that is off, tested in line and by a call to the toolkit; a trace
// that is on; an operator message.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "foundation/Log.h"

namespace {

// A toolkit with a message logger and a tracer that write below a temporary folder.
class Toolkit {
public:
    explicit Toolkit(const char* traceLevel) {
        std::string pattern = std::filesystem::temp_directory_path() / "trace-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) std::abort();
        dir_ = pattern;
        std::ofstream(dir_ / "bench.properties")
            << "log.msg.type = qlg_logger\nlog.msg.handlers = file.msg\n"
            << "log.trace.type = qlg_tracer\nlog.trace.handlers = file.trace\n"
            << "log.trace.level = " << traceLevel << "\n"
            << "file.msg.type = qlg_filehandler\nfile.msg.fileName = " << dir_.string() << "/msg\n"
            << "file.trace.type = qlg_filehandler\nfile.trace.fileName = " << dir_.string()
            << "/trace\n";
        if (QlgOpenToolkit((dir_ / "bench.properties").c_str()) != 1) std::abort();
        logger = QlgGetObject("log.msg", nullptr);
        tracer = QlgGetObject("log.trace", nullptr);
    }
    ~Toolkit() {
        QlgCloseToolkit();
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    Toolkit(const Toolkit&) = delete;
    Toolkit& operator=(const Toolkit&) = delete;

    QlgHandle logger = nullptr;
    QlgHandle tracer = nullptr;

private:
    std::filesystem::path dir_;
};

void BM_TraceOffTestedInline(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(traceOn(kDebugMid));
}
BENCHMARK(BM_TraceOffTestedInline);

void BM_TraceOffTestedByCall(benchmark::State& state) {
    const Toolkit toolkit("OFF");
    for (auto _ : state) benchmark::DoNotOptimize(QlgIsLoggable(toolkit.tracer, kDebugMid));
}
BENCHMARK(BM_TraceOffTestedByCall);

[[gnu::noinline]] int untraced(int value) {
    benchmark::DoNotOptimize(value);
    return value + 1;
}

[[gnu::noinline]] int traced(int value) {
    VEL_TRACE("traced(int)");
    benchmark::DoNotOptimize(value);
    return value + 1;
}

// The difference of these two is what entry and exit of a function cost while the trace is off.
void BM_CallWithoutTrace(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(untraced(1));
}
BENCHMARK(BM_CallWithoutTrace);

void BM_CallWithTraceOff(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(traced(1));
}
BENCHMARK(BM_CallWithTraceOff);

// Every record is handed to the system at once, as the shipped configuration has it.
void BM_TraceRecordWritten(benchmark::State& state) {
    const Toolkit toolkit("DEBUG_MID");
    for (auto _ : state) {
        QlgLogDebugMid(toolkit.tracer, "trace_bench.cpp", "traced(int)", 1, "entry", 0);
    }
}
BENCHMARK(BM_TraceRecordWritten);

void BM_MessageWritten(benchmark::State& state) {
    const Toolkit toolkit("OFF");
    for (auto _ : state) {
        QlgLogInfo(toolkit.logger, "velprobeMessages", 1, 1070, "Using property file %s",
                   QLG_STRING, "/home/agent/etc/datacollector.properties", 0);
    }
}
BENCHMARK(BM_MessageWritten);

}  // namespace
