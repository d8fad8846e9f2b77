#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QRect>

#include <algorithm>
#include <functional>

/// Writes GIF files block by block, sound ones and others.
///
/// Pixels are colours 0 to 127 of a fixed palette: black, white, red, green, blue, then greys. They are
/// stored by 8-bit codes with the decoder's dictionary cleared before it would want nine.
class GifWriter
{
public:
    enum Colour { Black, White, Red, Green, Blue };
    enum Disposal { Keep = 1, Background = 2, Previous = 3 };
    using Picture = std::function<int(int x, int y)>;

    GifWriter(int width, int height)
        : screen(0, 0, width, height)
    {
        bytes = "GIF89a";
        number(width);
        number(height);
        bytes.append("\xf6\x00\x00", 3);
        for (int i = 0; i < 128; ++i) {
            const char grey = char(2 * i);
            bytes.append(i < 5 ? QByteArray("\0\0\0\xff\xff\xff\xff\0\0\0\xff\0\0\0\xff", 15).mid(3 * i, 3)
                               : QByteArray(3, grey));
        }
    }

    /// A picture that covers `area` only.
    GifWriter& frame(const QRect& area, int delay_cs, const Picture& picture, Disposal disposal = Keep,
                     int transparent = -1)
    {
        bytes.append("\x21\xf9\x04", 3);
        bytes.append(char(disposal << 2 | (transparent >= 0)));
        number(delay_cs);
        bytes.append(char(std::max(transparent, 0))).append('\0');
        bytes.append('\x2c');
        for (const int value : {area.x(), area.y(), area.width(), area.height()})
            number(value);
        bytes.append("\0\7", 2);
        QByteArray codes;
        for (int i = 0; i < area.width() * area.height(); ++i) {
            if (i % 120 == 0)
                codes.append('\x80');
            codes.append(char(picture(i % area.width(), i / area.width())));
        }
        codes.append('\x81');
        for (int i = 0; i < codes.size(); i += 255) {
            const QByteArray block = codes.mid(i, 255);
            bytes.append(char(block.size())).append(block);
        }
        bytes.append('\0');
        return *this;
    }
    GifWriter& frame(const QRect& area, int delay_cs, int colour, Disposal disposal = Keep)
    {
        return frame(
            area, delay_cs, [colour](int, int) { return colour; }, disposal);
    }
    /// `count` pictures over the whole screen, each in a grey of its own.
    GifWriter& greys(int count, int delay_cs)
    {
        for (int i = 0; i < count; ++i)
            frame(screen, delay_cs, 10 + 110 * i / count);
        return *this;
    }

    QByteArray finished() const { return QByteArray(bytes).append('\x3b'); }
    QByteArray unfinished() const { return bytes; }

private:
    void number(int value) { bytes.append(char(value & 0xff)).append(char(value >> 8)); }

    const QRect screen;
    QByteArray bytes;
};
