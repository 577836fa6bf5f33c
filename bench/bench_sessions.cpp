// The sessions list applying a detailed refresh of 1,000 sessions on the main thread: the first
// time (rows made), again unchanged (rows kept, compared), and with every time moved on (what a
// refresh every 3 seconds brings). Baseline: copying the same list of records, which the model
// does anyway when it assigns it. Offscreen; each figure includes laying out and painting what
// is on screen.

#include "BenchUtil.h"
#include "Json.h"
#include "Records.h"
#include "SessionsView.h"

#include <QApplication>
#include <QScrollArea>

#include <string>

using harkline::ClaudeSession;
using harkline::Json;

namespace {

std::vector<ClaudeSession> makeSessions(int count, double at)
{
    static const char* states[] = {"working", "waiting", "ended", "done"};
    std::vector<ClaudeSession> list;
    list.reserve(std::size_t(count));
    for (int i = 0; i < count; ++i)
        list.emplace_back(Json{{"id", "session-" + std::to_string(i)},
                               {"project", "project-" + std::to_string(i % 17)},
                               {"title", "Refactor the relay backoff, part " + std::to_string(i)},
                               {"state", states[i % 4]},
                               {"listening", i % 3 == 0},
                               {"last_ts", at - i * 1000.0},
                               {"last_text", "Done. The tests pass."},
                               {"queued", i % 5}});
    return list;
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    constexpr int kCount = 1000;
    constexpr int kRounds = 15;
    const double now = 1.8e12;

    QScrollArea area;
    area.setWidgetResizable(true);
    area.resize(312, 300);
    auto* view = new harkline::ui::SessionsView;
    area.setWidget(view);
    area.show();

    auto apply = [&](const std::vector<ClaudeSession>& list) {
        const auto start = bench::Clock::now();
        view->setSessions(list);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        area.viewport()->repaint();
        return bench::microsecondsSince(start) / 1000.0;
    };

    std::vector<double> first, same, moved, copies;
    for (int round = 0; round < kRounds; ++round) {
        const auto a = makeSessions(kCount, now + round * 3000.0);
        const auto b = makeSessions(kCount, now + round * 3000.0 + 1500.0);
        view->setSessions({});
        first.push_back(apply(a));
        same.push_back(apply(a));
        moved.push_back(apply(b));
        const auto start = bench::Clock::now();
        std::vector<ClaudeSession> copy = b;
        copies.push_back(bench::microsecondsSince(start) / 1000.0);
        if (copy.size() != std::size_t(kCount))
            return 1;
    }
    std::printf("sessions list, %d sessions, median of %d rounds (budget 16 ms a refresh)\n",
                kCount, kRounds);
    bench::report("first apply (rows made)", bench::median(first), "copy of the records",
                  bench::median(copies), "ms");
    bench::report("same list again", bench::median(same), "copy of the records",
                  bench::median(copies), "ms");
    bench::report("every time moved on", bench::median(moved), "copy of the records",
                  bench::median(copies), "ms");
    bench::report("same list vs first apply", bench::median(same), "first apply",
                  bench::median(first), "ms");
    return 0;
}
