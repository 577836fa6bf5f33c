// The sessions list applying a detailed refresh on the main thread, as the model hands it over:
// the list arrives from a worker thread, replaces the one held (the old one is freed here), and
// the view takes it. For each size: the first apply, the same list again, and every time moved
// on (what a refresh every 3 s brings); the figure is the longest event the main thread handled
// (the stall a user feels), layout and painting of what is on screen included. Then the memory
// after a large list shrinks back to 100, and twenty sessions with 100,000-character texts, one
// of them unfolded. Baseline: copying the same list of records, which is the least any view that
// keeps the list does; for the long texts, laying the text out once. Offscreen.
//   bench_sessions [COUNT...]   (default 1000 10000 50000)

#include "BenchUtil.h"
#include "MainThread.h"
#include "Records.h"
#include "SessionsView.h"

#include <QTextLayout>

#include <string>
#include <thread>

using harkline::ClaudeSession;
using harkline::DaemonTime;

namespace {

// Built on another thread, as the model's worker builds them.
std::vector<ClaudeSession> makeSessions(int count, double atSeconds, std::size_t textSize = 0)
{
    std::vector<ClaudeSession> list;
    std::thread([&] {
        static const char* states[] = {"working", "waiting", "ended", "done"};
        list.reserve(std::size_t(count));
        for (int i = 0; i < count; ++i) {
            ClaudeSession s;
            s.id = "5f0c" + std::to_string(1000000 + i) + "-9b1e-4c6a-8d2f-3e7a1b9c0d4e";
            s.project = "project-" + std::to_string(i % 17);
            s.title = "Refactor the relay backoff, part " + std::to_string(i);
            s.state = states[i % 4];
            s.listening = i % 3 == 0;
            s.lastActive = DaemonTime(std::chrono::duration<double>(atSeconds - i));
            s.lastText = std::string(120 + i % 200, 'x') + " — done, the tests pass.";
            s.queued = i % 5;
            if (textSize) {
                std::string words;
                while (words.size() < textSize)
                    words += "generated words of a very long reply " + std::to_string(i) + " ";
                words.resize(textSize);
                s.title = s.project = s.lastText = words;
            }
            list.push_back(std::move(s));
        }
    }).join();
    return list;
}

struct Figures
{
    std::vector<double> first, same, moved, copies;
};

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    bench::StallMeter app(argc, argv);
    std::vector<int> counts;
    for (int i = 1; i < argc; ++i)
        counts.push_back(std::atoi(argv[i]));
    if (counts.empty())
        counts = {1000, 10000, 50000};
    const double now = 1.8e9;

    auto* view = new harkline::ui::SessionsView;
    view->resize(312, 300);
    view->show();

    // What the model holds; each apply replaces it and hands it to the view.
    std::vector<ClaudeSession> held;
    auto apply = [&](std::vector<ClaudeSession> next) {
        return bench::stallOf(app, [&, next = std::move(next)]() mutable {
            held = std::move(next);
            view->setSessions(held);
        });
    };

    apply(makeSessions(100, now));
    const double before = bench::residentMegabytes();

    std::printf("sessions list: longest main-thread event per apply, median (budget 16 ms at "
                "10,000, 50 ms at 50,000)\n");
    for (const int count : counts) {
        const int rounds = count >= 50000 ? 3 : count >= 10000 ? 5 : 9;
        Figures f;
        for (int round = 0; round < rounds; ++round) {
            const double at = now + round * 3.0;
            apply({});
            f.first.push_back(apply(makeSessions(count, at)));
            f.same.push_back(apply(makeSessions(count, at)));
            auto moved = makeSessions(count, at + 1.5);
            const auto start = bench::Clock::now();
            std::vector<ClaudeSession> copy = moved;
            f.copies.push_back(bench::microsecondsSince(start) / 1000.0);
            f.moved.push_back(apply(std::move(moved)));
        }
        const double copies = bench::median(f.copies);
        std::printf("%d sessions, %d rounds\n", count, rounds);
        bench::report("  first apply", bench::median(f.first), "copy of the records", copies, "ms");
        bench::report("  same list again", bench::median(f.same), "copy of the records", copies,
                      "ms");
        bench::report("  every time moved on", bench::median(f.moved), "copy of the records",
                      copies, "ms");
    }

    apply(makeSessions(100, now));
    const double after = bench::residentMegabytes();
    bench::report("resident memory at 100 sessions, after", after, "before the large lists", before,
                  "MB");

    // Twenty sessions whose texts are 100,000 characters each. Unfolding the first lays its text
    // out once (baseline: a bare text layout of the same text); refreshes then cost what they
    // cost with short texts, unless the unfolded text itself changed.
    const auto huge = makeSessions(20, now, 100000);
    apply(huge);
    std::vector<double> unfolds, layouts;
    for (int round = 0; round < 5; ++round) {
        unfolds.push_back(bench::stallOf(app, [&] { view->toggle(huge.front().id); }));
        bench::stallOf(app, [&] { view->toggle(huge.front().id); });
        const auto start = bench::Clock::now();
        QTextLayout layout(QString::fromStdString(huge.front().lastText), view->font());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(option);
        layout.beginLayout();
        for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine())
            line.setLineWidth(250);
        layout.endLayout();
        layouts.push_back(bench::microsecondsSince(start) / 1000.0);
    }
    view->toggle(huge.front().id);
    std::vector<double> refreshes, changed, copies;
    for (int round = 0; round < 5; ++round) {
        auto next = makeSessions(20, now + 3.0 * (round + 1), 100000);
        const auto start = bench::Clock::now();
        std::vector<ClaudeSession> copy = next;
        copies.push_back(bench::microsecondsSince(start) / 1000.0);
        refreshes.push_back(apply(std::move(next)));
    }
    for (int round = 0; round < 5; ++round) {
        auto next = makeSessions(20, now + 3.0 * (round + 6), 100000);
        next.front().lastText.back() = char('a' + round);
        changed.push_back(apply(std::move(next)));
    }
    std::printf("20 sessions with 100,000-character texts, one unfolded, median of 5\n");
    bench::report("  unfolding it", bench::median(unfolds), "bare layout of the text",
                  bench::median(layouts), "ms");
    bench::report("  refresh, every time moved on", bench::median(refreshes), "copy of the records",
                  bench::median(copies), "ms");
    bench::report("  refresh, its text changed", bench::median(changed), "bare layout of the text",
                  bench::median(layouts), "ms");
    return 0;
}
