// The writer against the way it wrote before its fast path (pairs on the
// stack, values fetched ahead, inline buffer appends): the same text, compact
// and pretty, on generated documents with awkward keys, priority keys, none
// nodes, large objects and nesting beyond the writable depth.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "portable-core/json/CEJSON.h"
#include "portable-core/json/CEJSONParseBuffer.h"
#include "portable-core/json/TJSON.h"

namespace
{
// The former writer, kept as the reference: the same steps on a std::string.
class ReferenceWriter
{
public:
    std::string Write(const CEJSON* node, int* indent)
    {
        text_.clear();
        lastWasFormatting_ = false;
        Node(node, indent, 1);
        return text_;
    }

private:
    void Content(const std::string& text)
    {
        text_ += text;
        lastWasFormatting_ = false;
    }

    void Formatting(const std::string& text)
    {
        text_ += text;
        lastWasFormatting_ = true;
    }

    void Tabs(int count)
    {
        if (count > 0)
        {
            Formatting(std::string(static_cast<size_t>(count), '\t'));
        }
    }

    void LinebreakAndIndent(int* indent, int delta)
    {
        if (indent == nullptr)
        {
            return;
        }
        *indent += delta;
        if (!lastWasFormatting_)
        {
            if (!text_.empty())
            {
                Formatting("\n");
            }
            Tabs(*indent);
        }
        else
        {
            Tabs(delta);
        }
    }

    static bool Writable(const CEJSON* node, int depth)
    {
        return node->IsValid() && (!(node->IsArray() || node->IsObject()) || depth <= kCEJSONMaxNestingDepth);
    }

    void Node(const CEJSON* node, int* indent, int depth)
    {
        if (const auto* array = dynamic_cast<const CEJSONArray*>(node))
        {
            LinebreakAndIndent(indent, 0);
            Content("[");
            LinebreakAndIndent(indent, 1);
            bool first = true;
            for (const CEJSON* item : array->Items())
            {
                if (!Writable(item, depth + 1))
                {
                    continue;
                }
                if (!first)
                {
                    Content(",");
                    LinebreakAndIndent(indent, 0);
                }
                first = false;
                Node(item, indent, depth + 1);
            }
            LinebreakAndIndent(indent, -1);
            Content("]");
        }
        else if (const auto* object = dynamic_cast<const CEJSONObject*>(node))
        {
            std::vector<CEJSONObjectKeyValue> pairs;
            CEJSONObjectSorter sorter(object->PriorityKeys());
            for (const auto& entry : object->Entries())
            {
                if (Writable(entry.second, depth + 1))
                {
                    pairs.push_back({&entry.first, entry.second, sorter.IsPriorityKey(entry.first)});
                }
            }
            std::sort(pairs.begin(), pairs.end(), sorter);
            LinebreakAndIndent(indent, 0);
            Content("{");
            LinebreakAndIndent(indent, 1);
            bool first = true;
            for (const CEJSONObjectKeyValue& pair : pairs)
            {
                if (!first)
                {
                    Content(",");
                    LinebreakAndIndent(indent, 0);
                }
                first = false;
                CEJSONParseBuffer key;
                TJSON_EscapeString(*pair.key, key);
                Content("\"" + key.TakeString() + "\":");
                Node(pair.value, indent, depth + 1);
            }
            LinebreakAndIndent(indent, -1);
            Content("}");
        }
        else
        {
            // Scalars write themselves as before.
            CEJSONParseBuffer scalar;
            node->WriteTo(indent, scalar, depth);
            if (scalar.GetLength() > 0)
            {
                Content(scalar.TakeString());
            }
        }
    }

    std::string text_;
    bool lastWasFormatting_ = false;
};

class Generator
{
public:
    explicit Generator(uint64_t seed) : random_(seed) {}

    TJSON Object(int depth)
    {
        TJSON object;
        // Now and then more pairs than the writer keeps on its stack.
        const int count = Pick(8) == 0 ? 20 + Pick(30) : Pick(7);
        std::vector<std::string> keys;
        for (int i = 0; i < count; ++i)
        {
            keys.push_back(Key());
            object.Add(keys.back(), Value(depth));
        }
        if (!keys.empty() && Pick(3) == 0)
        {
            object.SetPriorityObjects(
                {keys[static_cast<size_t>(Pick(static_cast<int>(keys.size())))], "absent"});
        }
        return object;
    }

private:
    int Pick(int n) { return static_cast<int>(random_() % static_cast<uint64_t>(n)); }

    // Keys that differ in high bytes, a NUL inside, prefixes and escapes.
    std::string Key()
    {
        static const std::string kParts[] = {
            "a", "ab",   "B", std::string("a\0b", 3), "\xC3\xA9", "\xE2\x82\xAC", "\"", "/", "\\", "\t",
            "z", "\x7F", "~"};
        std::string key;
        for (int i = Pick(4); i >= 0; --i)
        {
            key += kParts[Pick(static_cast<int>(std::size(kParts)))];
        }
        return key;
    }

    TJSON Value(int depth)
    {
        switch (Pick(depth > 4 ? 8 : 10))
        {
            case 0:
                return TJSONNull();
            case 1:
                return TJSONBool(Pick(2) == 0);
            case 2:
                return TJSONInt(static_cast<int64_t>(random_()));
            case 3:
                return TJSONDouble(static_cast<double>(Pick(100000)) / 977.0);
            case 4:
                return TJSONNone();  // no text, and no comma for it
            case 5:
            case 6:
            case 7:
                return TJSONString(Key() + " text");
            case 8:
                return Object(depth + 1);
            default:
            {
                TJSONArray array;
                for (int i = Pick(5); i > 0; --i)
                {
                    array.Add(Value(depth + 1));
                }
                return array;
            }
        }
    }

    std::mt19937_64 random_;
};

TEST(JSONWriterFastPath, WritesTheSameTextAsTheFormerWriter)
{
    ReferenceWriter reference;
    for (uint64_t seed = 1; seed <= 300; ++seed)
    {
        const TJSON doc = Generator(seed).Object(0);
        for (int start : {-1, 0, 2})
        {
            int ours = start;
            int theirs = start;
            ASSERT_EQ(doc.ToString(start < 0 ? nullptr : &ours),
                      reference.Write(doc.GetNode(), start < 0 ? nullptr : &theirs))
                << "seed " << seed << " indent " << start;
        }
    }
}

// Containers nested past the writable depth are left out, in both writers.
TEST(JSONWriterFastPath, LeavesOutTheSameTooDeepContainers)
{
    TJSON top;
    TJSON inner = top;
    for (int depth = 0; depth < kCEJSONMaxNestingDepth + 3; ++depth)
    {
        TJSON next;
        next.AddInt("level", depth);
        inner.Add(depth % 2 == 0 ? "next" : "\xC3\xA9", next);
        inner.AddString("side", "s");
        inner = next;
    }
    ReferenceWriter reference;
    int ours = 0;
    int theirs = 0;
    EXPECT_EQ(top.ToString(), reference.Write(top.GetNode(), nullptr));
    EXPECT_EQ(top.ToString(&ours), reference.Write(top.GetNode(), &theirs));
}
}  // namespace
