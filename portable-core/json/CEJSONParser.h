#pragma once

#include <string>

class CEJSON;

// The lenient reader behind CEJSON::CreateObject and CreateArrayObject. It
// reports no errors: at the first byte it can't make sense of, every open
// container ends and what was read so far is the result.
class CEJSONParser
{
public:
    explicit CEJSONParser(const char* text) : p_(text) {}

    // A value of any kind, or null (no reference) when none starts here.
    CEJSON* ParseValue(int depth);
    // Always a node: an empty object or array when the text has none.
    CEJSON* ParseObject(int depth);
    CEJSON* ParseArray(int depth);
    // False when no string starts here.
    bool ParseString(std::string& out);

    const char* Position() const { return p_; }

private:
    void SkipWhiteSpace();
    CEJSON* ParseNumber();
    void ParseUnicodeEscape(std::string& out);
    unsigned ReadHexQuad();

    const char* p_;
};
