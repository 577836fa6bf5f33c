#pragma once

// A minimal org.kde.StatusNotifierWatcher, as a desktop's tray host provides one: it records the
// items that register and says a host is present.

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>

namespace harkline::test {

class SniWatcher : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)

public:
    struct Item
    {
        QString service;
        QString path;
    };

    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const
    {
        QStringList names;
        for (const Item& item : m_items)
            names << item.service + item.path;
        return names;
    }
    const QList<Item>& registered() const { return m_items; }

    // Puts the watcher on `bus` under its well-known name.
    bool publish(QDBusConnection bus)
    {
        return bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                                  QDBusConnection::ExportAllContents) &&
               bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"));
    }

public slots:
    void RegisterStatusNotifierItem(const QString& serviceOrPath)
    {
        // Items name either their bus name (with the default path) or just a path on the
        // sender's connection.
        Item item;
        if (serviceOrPath.startsWith(QLatin1Char('/'))) {
            item.service = message().service();
            item.path = serviceOrPath;
        } else {
            item.service = serviceOrPath;
            item.path = QStringLiteral("/StatusNotifierItem");
        }
        m_items << item;
        Q_EMIT StatusNotifierItemRegistered(item.service + item.path);
    }
    void RegisterStatusNotifierHost(const QString&) {}

signals:
    void StatusNotifierItemRegistered(const QString& item);
    void StatusNotifierItemUnregistered(const QString& item);
    void StatusNotifierHostRegistered();

private:
    QList<Item> m_items;
};

} // namespace harkline::test
