#pragma once

#include <QString>

namespace harkline {

// The general clipboard, plain text only. Main thread.
class Clipboard
{
public:
    virtual ~Clipboard() = default;
    // Replaces whatever the clipboard held.
    virtual void setText(const QString& text) = 0;
};

class QtClipboard final : public Clipboard
{
public:
    void setText(const QString& text) override;
};

// Hands a file to the desktop's default viewer for its type. Main thread; the outcome is the
// desktop's business, so nothing is returned.
class FileOpener
{
public:
    virtual ~FileOpener() = default;
    virtual void open(const QString& path) = 0;
};

class DesktopFileOpener final : public FileOpener
{
public:
    void open(const QString& path) override;
};

// Where the daemon writes its log: $XDG_STATE_HOME/harkline/harkline.log, with ~/.local/state when
// XDG_STATE_HOME is unset, empty or relative. This is also where the daemon keeps its socket.
QString daemonLogPath();

// The daemon's log on macOS, under the given home folder.
QString macDaemonLogPath(const QString& home);

} // namespace harkline
