// The notice parser beside the tree of libxml2, by the size of the document.

#include "Support/NoticeParser.h"

#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cstdint>

#include <malloc.h>

namespace {

constexpr std::int64_t smallest = 1 << 10;
constexpr std::int64_t largest = 10'000'000;

void sizes(benchmark::internal::Benchmark *benchmark) {
    benchmark->RangeMultiplier(10)->Range(smallest, largest);
}

// Half of it is one long text, half are entries, so that neither long nor many elements go unnoticed.
QString documentOfSize(std::int64_t bytes) {
    const auto sentence = QStringLiteral("The file was not sent. ");
    const auto entry = QStringLiteral("<md><name>Application</name><val>Example &amp; Drive</val></md>\n");
    auto text
        = QStringLiteral("<zelvik-secure-access><notifications><module>Policy</module><head>Blocked</head>"
                         "<timeout>10</timeout><body>");
    text += sentence.repeated(bytes / 2 / sentence.size());
    text += QStringLiteral("</body><metadata>");
    text += entry.repeated(std::max<std::int64_t>(0, bytes - text.size() - 50) / entry.size());
    return text + QStringLiteral("</metadata></notifications></zelvik-secure-access>");
}

void noticeParser(benchmark::State &state) {
    const auto text = documentOfSize(state.range(0));
    for (auto _ : state) {
        auto payload = parseNotice(text);
        if (!payload)
            state.SkipWithError("the document was rejected");
        benchmark::DoNotOptimize(payload);
    }
}
BENCHMARK(noticeParser)->Apply(sizes);

void libxml2Tree(benchmark::State &state) {
    const auto bytes = documentOfSize(state.range(0)).toUtf8();
    for (auto _ : state) {
        auto *document = xmlReadMemory(bytes.constData(), static_cast<int>(bytes.size()), nullptr, "UTF-8",
            XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
        if (!document)
            state.SkipWithError("the document was rejected");
        benchmark::DoNotOptimize(document);
        xmlFreeDoc(document);
    }
}
BENCHMARK(libxml2Tree)->Apply(sizes);

} // namespace

int main(int argumentCount, char **arguments) {
    // Freed memory stays with the process, as in an agent that has shown a notice. Otherwise half of the time
    // would be the kernel's, for both.
    constexpr int never = 2'000'000'000;
    mallopt(M_TRIM_THRESHOLD, never);
    mallopt(M_MMAP_THRESHOLD, never);
    benchmark::Initialize(&argumentCount, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
