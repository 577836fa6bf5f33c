#pragma once

// What the main thread of a Qt program spends: the longest single event it handled (a stall the
// user feels), its CPU time, and the process's resident memory.

#include <QApplication>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <string>
#include <unistd.h>

namespace bench {

// Times every event delivered from the event loop (nested deliveries count in their outer one).
class StallMeter : public QApplication
{
public:
    using QApplication::QApplication;

    bool notify(QObject* receiver, QEvent* event) override
    {
        if (m_depth++ > 0) {
            const bool done = QApplication::notify(receiver, event);
            --m_depth;
            return done;
        }
        const auto start = std::chrono::steady_clock::now();
        const bool done = QApplication::notify(receiver, event);
        const double ms =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count();
        m_longest = std::max(m_longest, ms);
        --m_depth;
        return done;
    }

    // The longest event since the last call, in milliseconds.
    double takeLongest() { return std::exchange(m_longest, 0.0); }

private:
    int m_depth = 0;
    double m_longest = 0;
};

// Runs the event loop for `ms` milliseconds: posted layouts, paints and zero timers all run.
inline void runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Runs `work` as the model's results arrive, inside one event of the main thread, then lets the
// loop handle what it caused; returns the longest event, the work's own included.
template <class Work> double stallOf(StallMeter& app, Work work, int settleMs = 60)
{
    app.takeLongest();
    QTimer::singleShot(0, &app, work);
    runFor(settleMs);
    return app.takeLongest();
}

inline double threadCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) * 1e3 + double(t.tv_nsec) / 1e6;
}

inline double residentMegabytes()
{
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / 1e6;
}

} // namespace bench
