#pragma once

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

namespace harkline::test {

// What an independent decoder, zbarimg, reads from a QR code image: the payload's bytes.
inline QByteArray zbarRead(const QImage& image)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("code.png");
    image.save(file);
    QProcess zbar;
    zbar.start("zbarimg", {"--nodbus", "--quiet", "--raw", "-Sbinary", file});
    zbar.waitForFinished(20000);
    QByteArray read = zbar.readAllStandardOutput();
    if (read.endsWith('\n'))
        read.chop(1);
    return read;
}

} // namespace harkline::test
