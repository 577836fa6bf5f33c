// The open panel applying one detailed refresh (status, phones, sessions) from the simulated
// daemon with 100 sessions and 5 phones: the main thread's CPU time from asking to the last
// layout and paint, and its longest event. Baseline: the same refresh of a model with no panel,
// in the same run. Offscreen.
//   bench_panel [ROUNDS]   (default 30)

#include "AppModel.h"
#include "BenchUtil.h"
#include "DaemonClient.h"
#include "MainThread.h"
#include "MenuView.h"
#include "PanelWindow.h"

#include <QProcess>
#include <QTemporaryDir>

#include <memory>

using namespace harkline;

namespace {

std::unique_ptr<AppModel> makeModel()
{
    AppModel::Environment env;
    env.menuVisible = [] { return true; };
    env.tickInterval = std::chrono::milliseconds(0); // refreshes only when asked
    auto model = std::make_unique<AppModel>(env);
    while (model->tasksInFlight() > 0)
        bench::runFor(10);
    return model;
}

struct Cost
{
    double cpuMs;
    double longestMs;
};

Cost refreshOnce(bench::StallMeter& app, AppModel& model)
{
    app.takeLongest();
    const double start = bench::threadCpuMs();
    model.refresh(true);
    while (model.tasksInFlight() > 0)
        bench::runFor(2);
    bench::runFor(30); // the layout, the fit and the paint it caused
    return {bench::threadCpuMs() - start, app.takeLongest()};
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    bench::StallMeter app(argc, argv);
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 30;

    QProcess daemon;
    daemon.start(QStringLiteral(DEMO_DAEMON), {"--sessions", "100", "--phones", "5"});
    for (int i = 0; i < 200 && !DaemonClient::ok(DaemonClient::status()); ++i)
        bench::runFor(25);

    auto bare = makeModel();
    auto shown = makeModel();
    app::PanelWindow panel(new ui::MenuView(shown.get()));
    panel.setMode(app::PanelWindow::Mode::Window);
    panel.openAt({});
    for (int i = 0; i < 3; ++i) // warm: fonts, the formatter, first layout
        refreshOnce(app, *shown);

    std::vector<double> panelCpu, panelLongest, bareCpu, bareLongest;
    for (int round = 0; round < rounds; ++round) {
        // Alternated, so noise on this shared machine hits both alike.
        const Cost p = refreshOnce(app, *shown);
        const Cost b = refreshOnce(app, *bare);
        panelCpu.push_back(p.cpuMs);
        panelLongest.push_back(p.longestMs);
        bareCpu.push_back(b.cpuMs);
        bareLongest.push_back(b.longestMs);
    }
    std::printf("panel open, 100 sessions and 5 phones, one detailed refresh, median of %d "
                "(budget 2 ms)\n",
                rounds);
    bench::report("main-thread CPU, panel open", bench::median(panelCpu), "model alone",
                  bench::median(bareCpu), "ms");
    bench::report("longest event, panel open", bench::median(panelLongest), "model alone",
                  bench::median(bareLongest), "ms");
    daemon.terminate();
    daemon.waitForFinished(3000);
    return 0;
}
