#include "platform/BAS_WorkBuffer.h"

#include <cstring>

BAS_WorkBuffer::BAS_WorkBuffer(FILE *fp, char comment, const char *separators)
    : myFile(fp), myComment(comment), mySeparators(separators ? separators : "")
{
}

bool BAS_WorkBuffer::readLine()
{
    myLine.clear();
    myPos = 0;
    if (myEof || !myFile)
    {
        myEof = true;
        return false;
    }

    bool gotAny = false;
    bool inComment = false;
    bool split = false;
    std::size_t tokenLength = 0;
    int c;
    while ((c = std::getc(myFile)) != EOF)
    {
        gotAny = true;
        if (c == '\n')
            break;
        if (inComment)
            continue;
        const char ch = static_cast<char>(c);
        if (myComment && ch == myComment)
        {
            inComment = true;
            continue;
        }
        if (isSeparator(ch))
        {
            tokenLength = 0;
            if (myLine.size() >= kMaxLineLength)
            {
                // Split an over-long line between two tokens; the rest
                // follows as a continuation with the same line number.
                split = true;
                break;
            }
            myLine.push_back(ch);
            continue;
        }
        if (tokenLength == kMaxTokenLength)
            myLine += "...";
        if (tokenLength++ >= kMaxTokenLength)
            continue;
        myLine.push_back(ch);
    }
    if (c == EOF)
        myEof = true;
    if (!gotAny)
        return false;
    if (!split && !myLine.empty() && myLine.back() == '\r')
        myLine.pop_back();
    if (!myContinues)
        ++myLineNumber;
    myContinues = split;
    return true;
}

bool BAS_WorkBuffer::isSeparator(char c) const
{
    return std::memchr(mySeparators.data(), c, mySeparators.size()) != nullptr;
}

bool BAS_WorkBuffer::nextToken(std::string_view &token)
{
    const std::size_t n = myLine.size();
    while (myPos < n && isSeparator(myLine[myPos]))
        ++myPos;
    if (myPos >= n)
        return false;
    const std::size_t start = myPos;
    while (myPos < n && !isSeparator(myLine[myPos]))
        ++myPos;
    token = std::string_view(myLine.data() + start, myPos - start);
    return true;
}

bool BAS_WorkBuffer::getToken(std::string_view &token)
{
    while (!nextToken(token))
    {
        if (!readLine())
            return false;
    }
    return true;
}
