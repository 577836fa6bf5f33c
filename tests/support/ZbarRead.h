#pragma once

#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>

namespace harkline::test {

// The bytes zbarimg, an independent decoder, reads from a QR code framed by a white `border`.
inline QByteArray zbarRead(const QImage& code, int border)
{
    QImage framed(code.size() + QSize(2 * border, 2 * border), QImage::Format_RGB32);
    framed.fill(Qt::white);
    QPainter(&framed).drawImage(border, border, code);
    QTemporaryDir dir;
    const QString file = dir.filePath("code.png");
    framed.save(file);
    QProcess zbar;
    zbar.start("zbarimg", {"--nodbus", "--quiet", "--raw", "-Sbinary", file});
    zbar.waitForFinished(20000);
    QByteArray read = zbar.readAllStandardOutput();
    if (read.endsWith('\n'))
        read.chop(1);
    return read;
}

} // namespace harkline::test
