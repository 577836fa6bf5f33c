#include "Desktop.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QDir>
#include <QGuiApplication>
#include <QUrl>

namespace harkline {

void QtClipboard::setText(const QString& text)
{
    QGuiApplication::clipboard()->setText(text, QClipboard::Clipboard);
}

void DesktopFileOpener::open(const QString& path)
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

QString daemonLogPath()
{
    QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
    if (stateHome.isEmpty() || !QDir::isAbsolutePath(stateHome))
        stateHome = QDir::homePath() + QStringLiteral("/.local/state");
    return stateHome + QStringLiteral("/harkline/harkline.log");
}

QString macDaemonLogPath(const QString& home)
{
    return home + QStringLiteral("/Library/Logs/harkline.log");
}

} // namespace harkline
