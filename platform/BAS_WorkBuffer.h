// BAS_WorkBuffer: line reading and tokenising for the library's text readers.
//
// Reads a FILE* one line at a time, drops everything from the comment
// character to the end of the line, and splits what is left into tokens at the
// separator characters. Tokens may be taken from the current line only
// (nextToken) or from the whole stream, reading further lines as needed
// (getToken). lineNumber() is the 1-based number of the line the last token
// came from, for messages. A line ending in "\r\n" is read like one ending in
// "\n". The buffer does not own the FILE*. Not thread-safe; use one per reader.
//
// Memory is bounded whatever the input: a token longer than kMaxTokenLength
// characters is cut there and marked with "..." (so it can be neither a
// number nor a keyword), and a line longer than kMaxLineLength is handed out
// in pieces split between tokens, each piece keeping the line's number.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

class BAS_WorkBuffer
{
public:
    static constexpr std::size_t kMaxTokenLength = 4096;
    static constexpr std::size_t kMaxLineLength = 1 << 20;

    // Reads from `fp` (not owned). `comment` starts a comment ('\0' for none);
    // every character of `separators` separates tokens.
    explicit BAS_WorkBuffer(FILE *fp, char comment = '#', const char *separators = " \t");

    BAS_WorkBuffer(const BAS_WorkBuffer &) = delete;
    BAS_WorkBuffer &operator=(const BAS_WorkBuffer &) = delete;

    // Reads the next line into the buffer (comment removed, line end removed)
    // and restarts token iteration on it. False at the end of the stream when
    // nothing was read.
    bool readLine();

    // The current line, without its comment and line end.
    const std::string &line() const { return myLine; }

    // 1-based number of the current line; 0 before the first readLine().
    int lineNumber() const { return myLineNumber; }

    // The next token of the current line; false when the line has no more.
    // The view stays valid until the next readLine() or getToken().
    bool nextToken(std::string_view &token);

    // The next token of the stream, reading lines as needed; false at the
    // end of the stream.
    bool getToken(std::string_view &token);

private:
    bool isSeparator(char c) const;

    FILE *myFile;
    char myComment;
    std::string mySeparators;
    std::string myLine;
    std::size_t myPos = 0;
    int myLineNumber = 0;
    bool myEof = false;
    bool myContinues = false;
};
