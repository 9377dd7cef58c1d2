// What the parts cost by themselves and how that grows with what they are given.

#include "Benchmarks/Messages.h"
#include "Platform/Linux/DBusUserInfo.h"
#include "Platform/Qt/FileBundle.h"
#include "Support/AnyLanguageBundle.h"
#include "Support/ColorFromHex.h"
#include "Support/NoticeParser.h"
#include "Tests/Fakes/NoticeWorld.h"

#include <QCoreApplication>
#include <QEvent>

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
    benchmark->RangeMultiplier(10)->Range(smallest, largest)->Complexity(benchmark::oN);
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
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(noticeParser)->Apply(sizes);

void xmlLibraryAlone(benchmark::State &state) {
    const auto bytes = documentOfSize(state.range(0)).toUtf8();
    for (auto _ : state) {
        auto *document = xmlReadMemory(bytes.constData(), static_cast<int>(bytes.size()), nullptr, "UTF-8",
            XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
        if (!document)
            state.SkipWithError("the document was rejected");
        benchmark::DoNotOptimize(document);
        xmlFreeDoc(document);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(xmlLibraryAlone)->Apply(sizes);

void userInfo(benchmark::State &state) {
    const auto message = Messages::noticeWithLogo(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        auto notification = DBusUserInfo::read(message.get());
        benchmark::DoNotOptimize(notification);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(userInfo)->Apply(sizes);

void stringLookup(benchmark::State &state) {
    const FileBundle files(
        QStringLiteral(NOTICE_BUNDLE "/Contents"), [] { return QStringList { QStringLiteral("en") }; });
    AnyLanguageBundle bundle(files);
    bundle.switchLanguage(QStringLiteral("de"));
    const auto key = QStringLiteral("seconds");
    for (auto _ : state) {
        auto text = bundle.localizedStringForKey(key, {}, {});
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(stringLookup);

void colour(benchmark::State &state) {
    const auto text = QStringLiteral("#2A292F");
    for (auto _ : state) {
        auto color = colorFromHex(text);
        benchmark::DoNotOptimize(color);
    }
}
BENCHMARK(colour);

// From the notification centre through AppDelegate to the filled notice.
void wholeMessage(benchmark::State &state, const QVariantMap &message) {
    NoticeWorld world;
    world.launch();
    for (auto _ : state) {
        world.receive(message);
        // What the event loop does between two messages: the view that was replaced goes.
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        world.journal.clear();
    }
}

void casbMessageWithoutCountdown(benchmark::State &state) {
    wholeMessage(state, casbMessage().withEntries({}));
}
BENCHMARK(casbMessageWithoutCountdown);

void concurrentSession(benchmark::State &state) {
    wholeMessage(state, concurrentSessionMessage());
}
BENCHMARK(concurrentSession);

void maintenance(benchmark::State &state) {
    wholeMessage(state, maintenanceMessage());
}
BENCHMARK(maintenance);

// No flag and no document: it is taken in and goes nowhere.
void routingAlone(benchmark::State &state) {
    wholeMessage(state, emptyMessage());
}
BENCHMARK(routingAlone);

} // namespace

int main(int argumentCount, char **arguments) {
    // What is freed stays with the process, as it does in an agent that has shown a notice: there is always
    // something in use behind it. Here it would go back to the system after each round, and half of the time
    // would be the kernel's, for our parser and for the library alone.
    constexpr int never = 2'000'000'000;
    mallopt(M_TRIM_THRESHOLD, never);
    mallopt(M_MMAP_THRESHOLD, never);
    benchmark::Initialize(&argumentCount, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
