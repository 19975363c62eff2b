/* What the library prints, as text: standard output goes to a file while a capture lives. */
#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

struct output_capture {
    std::FILE *file = std::tmpfile();
    int before = -1;

    output_capture()
    {
        std::fflush(stdout);
        before = dup(1);
        dup2(fileno(file), 1);
    }
    output_capture(const output_capture &) = delete;
    output_capture &operator=(const output_capture &) = delete;
    ~output_capture()
    {
        close_capture();
        std::fclose(file);
    }

    /* Everything printed since the capture began; ends it. */
    std::string text()
    {
        close_capture();
        std::string all;
        std::rewind(file);
        for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) all.push_back(static_cast<char>(c));
        return all;
    }

  private:
    void close_capture()
    {
        if (before < 0) return;
        std::fflush(stdout);
        dup2(before, 1);
        close(before);
        before = -1;
    }
};
