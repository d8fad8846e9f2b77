// What the tools print.
#include "fuzz/input.h"
#include "multimedia/videoprovider/toolcommand.h"
#include "multimedia/videoprovider/tooloutput.h"

void fuzz(const uint8_t* data, size_t size)
{
    const QString text = toolcommand::text(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    tooloutput::duration(text);
    tooloutput::progress(text);
    tooloutput::rotation(text);
    toolcommand::quoted(toolcommand::inputPath(text));
    toolcommand::asOneWord(text);
}
