// Feeds arbitrary bytes to the JSON reader and checks that it never crashes,
// frees every node it made, and that its written text is a fixed point:
// reading it back and writing again gives the same text.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "portable-core/json/TJSON.h"

namespace
{
void Check(bool condition, const char* what)
{
    if (!condition)
    {
        fprintf(stderr, "json_document_fuzz: %s\n", what);
        abort();
    }
}

void Exercise(const std::string& input)
{
    TJSON doc(input);
    Check(doc.IsObject() || doc.IsArray(), "a document is an object or an array");

    std::string compact = doc.ToString();
    TJSON second(compact);
    std::string compactAgain = second.ToString();
    Check(compact == compactAgain, "compact text is not a fixed point");

    TJSON third(compactAgain);
    Check(second == third, "documents read from one text differ");

    int level = 0;
    std::string pretty = second.ToString(&level);
    Check(TJSON(pretty) == second, "pretty text reads back differently");
    Check(second.Copy() == second, "a copy differs");

    // Walk the top level through the accessors.
    for (const std::string& key : doc.GetKeys())
    {
        TJSON value = doc.GetObject(key);
        Check(value.IsValid(), "a listed key has no value");
        (void)value.GetInt();
        (void)value.GetDouble();
        (void)value.GetBool();
        (void)value.GetTicks();
    }
    for (int64_t i = 0; i < doc.GetCount() && doc.IsArray(); ++i)
    {
        Check(doc.GetIndObject(i).IsValid(), "an item has no value");
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int64_t aliveBefore = TJSON::GetGlobalObjectsCount();
    Exercise(std::string(reinterpret_cast<const char*>(data), size));
    Check(TJSON::GetGlobalObjectsCount() == aliveBefore, "nodes leaked");
    return 0;
}
