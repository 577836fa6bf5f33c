#include "SingleInstance.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QThread>

#include <unistd.h>

namespace harkline::app {

namespace {
constexpr const char kOpenRequest[] = "open\n";
}

SingleInstance::SingleInstance(QString directory, QObject* parent) : QObject(parent)
{
    QString suffix;
    if (directory.isEmpty()) {
        directory = qEnvironmentVariable("XDG_RUNTIME_DIR");
        if (directory.isEmpty() || !QDir::isAbsolutePath(directory) || !QDir(directory).exists()) {
            directory = QDir::tempPath();
            suffix = QStringLiteral("-%1").arg(getuid());
        }
    }
    m_socketPath = directory + QStringLiteral("/harkline-menubar%1.sock").arg(suffix);
    m_lockPath = directory + QStringLiteral("/harkline-menubar%1.lock").arg(suffix);

    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                // Anything but our one request is ignored; the peer is our own user (0700 dir).
                if (socket->canReadLine() && socket->readLine() == kOpenRequest)
                    Q_EMIT openRequested();
                socket->disconnectFromServer();
            });
        }
    });
}

SingleInstance::~SingleInstance()
{
    m_server.close();
}

SingleInstance::Role SingleInstance::claim()
{
    m_lock = std::make_unique<QLockFile>(m_lockPath);
    // The lock file holds the owner's pid: a companion that crashed leaves a stale lock that is
    // taken over, never a companion that cannot start again.
    m_lock->setStaleLockTime(0);
    if (m_lock->tryLock(0)) {
        QLocalServer::removeServer(m_socketPath);
        m_server.setSocketOptions(QLocalServer::UserAccessOption);
        if (!m_server.listen(m_socketPath))
            qWarning("harkline-menubar: cannot listen on %s: %s", qPrintable(m_socketPath),
                     qPrintable(m_server.errorString()));
        return Role::Primary;
    }
    if (m_lock->error() != QLockFile::LockFailedError) {
        // No lock to be had at all (a read-only folder): better one companion too many than none.
        qWarning("harkline-menubar: cannot create %s", qPrintable(m_lockPath));
        return Role::Primary;
    }
    m_lock.reset();
    // The running one may be a moment from listening when both start together.
    return askRunningToOpen(3000) ? Role::Secondary : Role::Unreachable;
}

bool SingleInstance::askRunningToOpen(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        QLocalSocket socket;
        socket.connectToServer(m_socketPath);
        if (socket.waitForConnected(500)) {
            socket.write(kOpenRequest);
            const bool sent = socket.waitForBytesWritten(1000);
            socket.disconnectFromServer();
            if (sent)
                return true;
        }
        QThread::msleep(100);
    }
    return false;
}

} // namespace harkline::app
