#include "LoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace harkline {

namespace {

QString configHome()
{
    const QString fromEnv = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!fromEnv.isEmpty() && QDir::isAbsolutePath(fromEnv))
        return fromEnv;
    return QDir::homePath() + QStringLiteral("/.config");
}

// Exec keys take arguments in double quotes in which ", `, $ and \ are escaped with a backslash;
// a literal % is written %%. Quoting always is allowed and spares us deciding when it is needed.
QString quotedExecArgument(const QString& argument)
{
    QString quoted;
    quoted.reserve(argument.size() + 2);
    quoted += QLatin1Char('"');
    for (const QChar c : argument) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') ||
            c == QLatin1Char('\\'))
            quoted += QLatin1Char('\\');
        quoted += c;
        if (c == QLatin1Char('%'))
            quoted += QLatin1Char('%');
    }
    quoted += QLatin1Char('"');
    // The key's value is itself a string value, in which a backslash must be doubled again.
    quoted.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    return quoted;
}

// True when the [Desktop Entry] group sets Hidden=true: the user (or a settings tool) turned the
// entry off without deleting it. Spaces around '=' are allowed by the format.
bool hiddenEntry(QFile& file)
{
    bool inMainGroup = false;
    bool hidden = false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup || line.startsWith('#'))
            continue;
        const qsizetype equals = line.indexOf('=');
        if (equals < 0 || line.left(equals).trimmed() != "Hidden")
            continue;
        hidden = line.mid(equals + 1).trimmed() == "true"; // the last one wins, as for any key
    }
    return hidden;
}

} // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable)
    : m_executable(std::move(executable))
{}

QString XdgAutostartLoginItem::entryPath()
{
    return configHome() + QStringLiteral("/autostart/") + QLatin1String(kFileName);
}

bool XdgAutostartLoginItem::enabled() const
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    return !hiddenEntry(file);
}

QByteArray XdgAutostartLoginItem::entryText(const QString& executable)
{
    QString text = QStringLiteral("[Desktop Entry]\n"
                                  "Type=Application\n"
                                  "Name=harkline\n"
                                  "Comment=Tray companion for the harkline notification service\n"
                                  "Exec=%1\n"
                                  "Terminal=false\n"
                                  "X-GNOME-Autostart-enabled=true\n")
                       .arg(quotedExecArgument(executable));
    return text.toUtf8();
}

std::optional<QString> XdgAutostartLoginItem::registerItem()
{
    const QString path = entryPath();
    const QString folder = QFileInfo(path).path();
    if (!QDir().mkpath(folder))
        return QCoreApplication::translate("LoginItem", "the folder %1 could not be created.")
            .arg(folder);

    const QString executable =
        m_executable.isEmpty() ? QCoreApplication::applicationFilePath() : m_executable;
    if (executable.isEmpty())
        return QCoreApplication::translate("LoginItem", "the program's own path is unknown.");

    // Written whole or not at all, so a failed write never leaves half an entry behind.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(entryText(executable)) < 0 || !file.commit())
        return QCoreApplication::translate("LoginItem", "%1 could not be written (%2).")
            .arg(path, file.errorString());
    return std::nullopt;
}

std::optional<QString> XdgAutostartLoginItem::unregisterItem()
{
    const QString path = entryPath();
    QFile file(path);
    if (!file.exists())
        return std::nullopt;
    if (!file.remove())
        return QCoreApplication::translate("LoginItem", "%1 could not be removed (%2).")
            .arg(path, file.errorString());
    return std::nullopt;
}

} // namespace harkline
