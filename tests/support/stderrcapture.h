#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

/// Takes what all threads write to the standard error stream while it lives. One at a time.
class StderrCapture
{
public:
    StderrCapture()
        : file(std::tmpfile())
        , saved(dup(STDERR_FILENO))
    {
        dup2(fileno(file), STDERR_FILENO);
    }
    ~StderrCapture()
    {
        dup2(saved, STDERR_FILENO);
        close(saved);
        std::fclose(file);
    }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    /// Everything so far.
    std::string text() const
    {
        std::string result;
        std::rewind(file);
        for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
            result += static_cast<char>(c);
        return result;
    }

private:
    std::FILE* file;
    int saved;
};
