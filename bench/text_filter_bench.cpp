// Times the 8-bit redaction filter against its std::regex reference on one generated product log, then
// the filter alone on twice and four times that log, on a log with a secret in one line of eight, on one
// line of a megabyte and on 100 MB of text.
// Times are processor time of this single-threaded process, so that other work on a shared machine
// disturbs them little; the wall-clock time is printed beside them. Every run gets fresh memory from the
// system, as a report run does, so that a small text does not gain from memory that a run before it freed.
//   text_filter_bench [megabytes of the log, 8 or more]
#include <chrono>
#include <cstdio>
#include <ctime>
#include <cstdlib>
#include <string>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "products/imager/system_report/filters/text_data_filter.h"
#include "tests/products/imager/system_report/text_filter_corpus.h"
#include "tests/products/imager/system_report/text_filter_oracle.h"

namespace {

double Megabytes(std::size_t bytes) { return static_cast<double>(bytes) / (1 << 20); }

struct Time {
    double processor = 0;
    double wall = 0;
};

template <typename Body>
Time Measure(Body&& body) {
    std::clock_t processor = std::clock();
    auto wall = std::chrono::steady_clock::now();
    body();
    return {static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count()};
}

void Filter(const SystemReport::TextDataFilter& filter, const std::string& text, std::string& filtered) {
    if (filter.Filter(text, filtered).Failed()) {
        std::fprintf(stderr, "the filter failed\n");
        std::exit(1);
    }
}

// The best of three runs.
Time FilterTime(const SystemReport::TextDataFilter& filter, const std::string& text, std::string& filtered) {
    Time best;
    for (int run = 0; run < 3; ++run) {
        Time time = Measure([&] { Filter(filter, text, filtered); });
        if (run == 0 || time.processor < best.processor) best = time;
    }
    return best;
}

void Print(const char* what, std::size_t bytes, Time time) {
    std::printf("%-28s %8.2f MB %9.3f s %9.2f MB/s   (wall %.3f s)\n", what, Megabytes(bytes), time.processor,
                Megabytes(bytes) / time.processor, time.wall);
}

}  // namespace

int main(int argc, char** argv) {
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
#endif
    double megabytes = argc > 1 ? std::atof(argv[1]) : 8.5;
    if (megabytes < 8) megabytes = 8;
    const auto size = static_cast<std::size_t>(megabytes * (1 << 20));
    const SystemReport::TextDataFilter filter;

    const std::string log = FilterCorpus::Log(size);
    std::string filtered;
    const Time product = FilterTime(filter, log, filtered);
    std::string expected;
    const Time reference = Measure([&] { expected = FilterOracle::FilterText(log); });
    Print("reference (std::regex)", log.size(), reference);
    Print("filter (PCRE2)", log.size(), product);
    const bool identical = filtered == expected;
    std::printf("filter/reference: %.0f times faster, output %s\n", reference.processor / product.processor,
                identical ? "identical" : "DIFFERENT");

    // The three sizes take turns, five times, so that a change in the machine's load falls on all of them.
    const std::string twice = FilterCorpus::Log(size * 2, 3);
    const std::string fourTimes = FilterCorpus::Log(size * 4, 5);
    const std::string* logs[] = {&log, &twice, &fourTimes};
    Time best[3];
    for (int round = 0; round < 5; ++round) {
        for (int i = 0; i < 3; ++i) {
            const Time time = Measure([&] { Filter(filter, *logs[i], filtered); });
            if (round == 0 || time.processor < best[i].processor) best[i] = time;
        }
    }
    Print("filter, 1x log", log.size(), best[0]);
    Print("filter, 2x log", twice.size(), best[1]);
    Print("filter, 4x log", fourTimes.size(), best[2]);
    std::printf("time of 2x and 4x the log: %.2f and %.2f times that of 1x\n", best[1].processor / best[0].processor,
                best[2].processor / best[0].processor);

    // A product log as dense in private data as the product's own: about one line in eight.
    const std::string dense = FilterCorpus::Log(size * 4, 9, 8);
    Print("filter, secret-dense log", dense.size(), FilterTime(filter, dense, filtered));

    std::string line;
    while (line.size() < (1u << 20)) line += "user=jdoe path C:\\Users\\jdoe\\x mail a.b@c.de <LocationLogin>x ";
    Print("filter, one line", line.size(), FilterTime(filter, line, filtered));

    const std::string huge = FilterCorpus::Log(100u << 20, 7);
    Print("filter, large text", huge.size(), Measure([&] { Filter(filter, huge, filtered); }));
    return identical ? 0 : 1;
}
