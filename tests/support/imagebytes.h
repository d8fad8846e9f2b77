#pragma once

#include <QtCore/QBuffer>
#include <QtCore/QByteArray>
#include <QtCore/QtEndian>
#include <QtGui/QImage>

#include <array>

/// Picture files in memory, sound and hostile ones.
namespace ImageBytes {

inline QByteArray encoded(const QImage& image, const char* format)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format, 100);
    return buffer.data();
}

/// A JPEG with EXIF data of an orientation, 1 to 8; 6 asks to show it turned clockwise by a quarter.
inline QByteArray turnedJpeg(const QImage& stored, char orientation = 6)
{
    static constexpr char kExif[] = "\xff\xe1\x00\x22"        // segment and its length
                                    "Exif\0\0II*\0\x08\0\0\0" // little-endian, first directory at 8
                                    "\x01\0"                  // one entry:
                                    "\x12\x01\x03\0\x01\0\0\0\x06\0\0\0" // orientation, one short, 6
                                    "\0\0\0\0";
    QByteArray exif(kExif, sizeof kExif - 1);
    exif[28] = orientation;
    return encoded(stored, "JPEG").insert(2, exif);
}

inline void put(QByteArray& bytes, int offset, quint32 big_endian_value)
{
    std::array<char, 4> value{};
    qToBigEndian(big_endian_value, value.data());
    bytes.replace(offset, 4, value.data(), 4);
}

inline quint32 crc32(const QByteArray& bytes)
{
    quint32 crc = 0xffffffff;
    for (const char byte : bytes) {
        crc ^= quint8(byte);
        for (int i = 0; i < 8; ++i)
            crc = crc >> 1 ^ (crc & 1 ? 0xedb88320 : 0);
    }
    return ~crc;
}

/// A sound PNG, but for its header, which promises `side` pixels each way.
inline QByteArray boastfulPng(quint32 side)
{
    QByteArray png = encoded(QImage(4, 4, QImage::Format_RGB32), "PNG");
    put(png, 16, side);
    put(png, 20, side);
    put(png, 29, crc32(png.mid(12, 17)));
    return png;
}

/// The same as a BMP.
inline QByteArray boastfulBmp(quint32 side)
{
    QByteArray bmp = encoded(QImage(4, 4, QImage::Format_RGB32), "BMP");
    put(bmp, 18, qbswap(side));
    put(bmp, 22, qbswap(side));
    return bmp;
}

} // namespace ImageBytes
