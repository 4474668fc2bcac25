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
    int c;
    while ((c = std::getc(myFile)) != EOF)
    {
        gotAny = true;
        if (c == '\n')
            break;
        if (inComment)
            continue;
        if (myComment && c == myComment)
        {
            inComment = true;
            continue;
        }
        myLine.push_back(static_cast<char>(c));
    }
    if (c == EOF)
        myEof = true;
    if (!gotAny)
        return false;
    if (!myLine.empty() && myLine.back() == '\r')
        myLine.pop_back();
    ++myLineNumber;
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
