#include "LoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSaveFile>
#include <QStandardPaths>

namespace harkline {

namespace {

QString configHome()
{
    const QString fromEnv = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!fromEnv.isEmpty() && QDir::isAbsolutePath(fromEnv))
        return fromEnv;
    return QDir::homePath() + QStringLiteral("/.config");
}

// A value of a string key: a backslash, a newline, a tab or a carriage return is escaped.
QString escapedString(const QString& value)
{
    QString escaped = value;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    escaped.replace(QLatin1Char('\n'), QStringLiteral("\\n"));
    escaped.replace(QLatin1Char('\t'), QStringLiteral("\\t"));
    escaped.replace(QLatin1Char('\r'), QStringLiteral("\\r"));
    return escaped;
}

// Exec keys take arguments in double quotes in which ", `, $ and \ are escaped with a backslash;
// a literal % is written %%. Quoting always is allowed and spares us deciding when it is needed.
// The key's value is itself a string value, escaped again as one: a line break in a path must
// not end the line.
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
    return escapedString(quoted);
}

QString unescapedString(const QString& value)
{
    QString plain;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != QLatin1Char('\\') || i + 1 == value.size()) {
            plain += value[i];
            continue;
        }
        const QChar next = value[++i];
        plain += next == QLatin1Char('s')   ? QChar(' ')
                 : next == QLatin1Char('n') ? QChar('\n')
                 : next == QLatin1Char('t') ? QChar('\t')
                 : next == QLatin1Char('r') ? QChar('\r')
                                            : next;
    }
    return plain;
}

// The first argument of an Exec value, its quoting and %% undone.
QString firstExecArgument(const QString& exec)
{
    QString argument;
    qsizetype i = 0;
    if (exec.startsWith(QLatin1Char('"'))) {
        for (i = 1; i < exec.size() && exec[i] != QLatin1Char('"'); ++i) {
            if (exec[i] == QLatin1Char('\\') && i + 1 < exec.size())
                ++i;
            argument += exec[i];
        }
    } else {
        argument = exec.section(QLatin1Char(' '), 0, 0);
    }
    return argument.replace(QStringLiteral("%%"), QStringLiteral("%"));
}

// The keys of the [Desktop Entry] group; the last one of a key wins. Spaces around '=' are
// allowed by the format.
QHash<QByteArray, QString> mainGroup(QFile& file)
{
    QHash<QByteArray, QString> keys;
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup || line.startsWith('#'))
            continue;
        const qsizetype equals = line.indexOf('=');
        if (equals > 0)
            keys[line.left(equals).trimmed()] = QString::fromUtf8(line.mid(equals + 1).trimmed());
    }
    return keys;
}

bool programExists(const QString& program)
{
    if (program.isEmpty())
        return false;
    if (QDir::isAbsolutePath(program)) {
        const QFileInfo info(program);
        return info.isFile() && info.isExecutable();
    }
    return !QStandardPaths::findExecutable(program).isEmpty() ||
           !QStandardPaths::findExecutable(program, XdgAutostartLoginItem::systemBinDirs())
                .isEmpty();
}

} // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable)
    : m_executable(std::move(executable))
{}

QString XdgAutostartLoginItem::entryPath()
{
    return configHome() + QStringLiteral("/autostart/") + QLatin1String(kFileName);
}

QStringList XdgAutostartLoginItem::systemBinDirs()
{
    return {QStringLiteral("/usr/local/bin"), QStringLiteral("/usr/bin"), QStringLiteral("/bin")};
}

QString XdgAutostartLoginItem::executable() const
{
    return m_executable.isEmpty() ? QCoreApplication::applicationFilePath() : m_executable;
}

bool XdgAutostartLoginItem::enabled() const
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    return mainGroup(file).value("Hidden") != QLatin1String("true");
}

QString XdgAutostartLoginItem::execProgram(const QString& executable, const QStringList& searchDirs)
{
    const QFileInfo info(executable);
    const QString found = QStandardPaths::findExecutable(info.fileName(), searchDirs);
    if (!found.isEmpty() && QFileInfo(found).canonicalFilePath() == info.canonicalFilePath())
        return info.fileName();
    return executable;
}

QString XdgAutostartLoginItem::entryProgram()
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const auto keys = mainGroup(file);
    const QString tryExec = unescapedString(keys.value("TryExec"));
    return tryExec.isEmpty() ? firstExecArgument(unescapedString(keys.value("Exec"))) : tryExec;
}

bool XdgAutostartLoginItem::repair()
{
    if (!enabled() || programExists(entryProgram()))
        return false;
    if (!executable().isEmpty() && !registerItem())
        return true;
    return !unregisterItem();
}

QByteArray XdgAutostartLoginItem::entryText(const QString& program)
{
    // TryExec: a session skips the entry while its program is missing, so an entry left behind
    // by a removed package starts nothing until the companion repairs it.
    QString text = QStringLiteral("[Desktop Entry]\n"
                                  "Type=Application\n"
                                  "Name=harkline\n"
                                  "Comment=Tray companion for the harkline notification service\n"
                                  "Icon=" HARKLINE_APP_ID "\n"
                                  "TryExec=%1\n"
                                  "Exec=%2\n"
                                  "Terminal=false\n"
                                  "X-GNOME-Autostart-enabled=true\n")
                       .arg(escapedString(program), quotedExecArgument(program));
    return text.toUtf8();
}

std::optional<QString> XdgAutostartLoginItem::registerItem()
{
    const QString path = entryPath();
    const QString folder = QFileInfo(path).path();
    if (!QDir().mkpath(folder))
        return QCoreApplication::translate("LoginItem", "the folder %1 could not be created.")
            .arg(folder);

    const QString program = executable();
    if (program.isEmpty())
        return QCoreApplication::translate("LoginItem", "the program's own path is unknown.");

    // Written whole or not at all, so a failed write never leaves half an entry behind.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(entryText(execProgram(program))) < 0 ||
        !file.commit())
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
