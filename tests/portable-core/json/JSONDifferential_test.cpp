// Differential check of the JSON reader and writer against nlohmann json on
// documents that both accept, generated from a fixed seed.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "portable-core/json/TJSON.h"

namespace
{
using nlohmann::json;

class DocumentGenerator
{
public:
    explicit DocumentGenerator(uint64_t seed) : random_(seed) {}

    json Document() { return Pick(2) == 0 ? Object(0) : Array(0); }

private:
    int Pick(int n) { return static_cast<int>(random_() % static_cast<uint64_t>(n)); }

    json Value(int depth)
    {
        // Containers only up to depth 5; text is three times as likely as any other kind.
        const int kind = Pick(depth >= 5 ? 7 : 9);
        return kind == 0   ? json(nullptr)
               : kind == 1 ? json(Pick(2) == 0)
               : kind == 2 ? Integer()
               : kind == 3 ? Double()
               : kind < 7  ? json(Text())
               : kind == 7 ? Object(depth + 1)
                           : Array(depth + 1);
    }

    json Integer()
    {
        const int kind = Pick(5);
        return kind == 0   ? json(Pick(1000) - 500)
               : kind == 1 ? json(static_cast<int64_t>(random_()))
               : kind == 2
                   ? json(Pick(2) ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min())
               : kind == 3
                   ? json(static_cast<uint64_t>(random_() | (uint64_t{1} << 63)))  // above the signed range
                   : json(static_cast<int64_t>(random_() >> Pick(64)));
    }

    json Double()
    {
        const int kind = Pick(4);
        double value = 0.0;
        while (kind == 3 && !std::isfinite(value = std::bit_cast<double>(static_cast<uint64_t>(random_()))))
        {
        }
        return kind == 0   ? (Pick(2000) - 1000) / 8.0
               : kind == 1 ? 0.1 * Pick(100)
               : kind == 2 ? std::ldexp(static_cast<double>(random_() >> 11), Pick(200) - 150)
                           : value;
    }

    std::string Text()
    {
        std::string text;
        int length = Pick(12);
        for (int i = 0; i < length; ++i)
        {
            // Control characters (not the form feed, whose escape this reader drops on purpose), two-,
            // three- and four-byte characters, and printable ASCII twice as often.
            const int kind = Pick(6);
            const auto control = static_cast<uint32_t>(1 + Pick(31));
            const uint32_t code = kind == 0   ? (control == 0x0C ? 0x0B : control)
                                  : kind == 1 ? 0x80 + static_cast<uint32_t>(Pick(0x780))
                                  : kind == 2 ? 0x800 + static_cast<uint32_t>(Pick(0xD000 - 0x800))
                                  : kind == 3 ? 0x10000 + static_cast<uint32_t>(Pick(0x100000))
                                              : 32 + static_cast<uint32_t>(Pick(96));
            AppendUtf8(code, text);
        }
        return text;
    }

    static void AppendUtf8(uint32_t code, std::string& out)
    {
        const int extra = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
        const uint32_t lead[] = {0x00, 0xC0, 0xE0, 0xF0};
        out.push_back(static_cast<char>(lead[extra] | (code >> (6 * extra))));
        for (int shift = 6 * (extra - 1); shift >= 0; shift -= 6)
        {
            out.push_back(static_cast<char>(0x80 | ((code >> shift) & 0x3F)));
        }
    }

    json Object(int depth)
    {
        json object = json::object();
        int count = Pick(6);
        for (int i = 0; i < count; ++i)
        {
            std::string key = Text();
            object[key.empty() ? "k" : key] = Value(depth);
        }
        return object;
    }

    json Array(int depth)
    {
        json array = json::array();
        int count = Pick(6);
        for (int i = 0; i < count; ++i)
        {
            array.push_back(Value(depth));
        }
        return array;
    }

    std::mt19937_64 random_;
};

// Exact comparison: the same kinds and values that nlohmann read.
::testing::AssertionResult SameAsReference(const TJSON& ours, const json& reference, const std::string& where)
{
    auto check = [&](bool same, const char* what) {
        return same ? ::testing::AssertionSuccess()
                    : ::testing::AssertionFailure() << what << " at " << where;
    };
    switch (reference.type())
    {
        case json::value_t::null:
            return check(ours.IsNull(), "expected null");
        case json::value_t::boolean:
            return check(ours.IsBool() && ours.GetBool() == reference.get<bool>(), "bool differs");
        case json::value_t::number_integer:
            return check(ours.IsInt() && ours.GetInt() == reference.get<int64_t>(), "integer differs");
        case json::value_t::number_unsigned:
        {
            const uint64_t value = reference.get<uint64_t>();
            if (value <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
            {
                return check(ours.IsInt() && static_cast<uint64_t>(ours.GetInt()) == value,
                             "unsigned differs");
            }
            return check(ours.IsDouble() && ours.GetDouble() == static_cast<double>(value),
                         "big unsigned differs");
        }
        case json::value_t::number_float:
            return check(ours.IsDouble() && ours.GetDouble() == reference.get<double>(), "double differs");
        case json::value_t::string:
            return check(ours.IsString() && ours.GetString() == reference.get<std::string>(),
                         "string differs");
        case json::value_t::array:
        case json::value_t::object:
        {
            const bool isArray = reference.is_array();
            if ((isArray ? !ours.IsArray() : !ours.IsObject()) ||
                ours.GetCount() != static_cast<int64_t>(reference.size()))
            {
                return check(false, "container differs");
            }
            int64_t index = 0;
            for (auto it = reference.begin(); it != reference.end(); ++it, ++index)
            {
                if (!isArray && !ours.HasKey(it.key()))
                {
                    return check(false, "key missing");
                }
                auto result = isArray
                                  ? SameAsReference(ours.GetIndObject(index), *it,
                                                    where + "[" + std::to_string(index) + "]")
                                  : SameAsReference(ours.GetObject(it.key()), *it, where + "." + it.key());
                if (!result)
                {
                    return result;
                }
            }
            return ::testing::AssertionSuccess();
        }
        default:
            return check(false, "unexpected kind");
    }
}

// Value comparison after our writer: an integral double may come back as an integer.
bool SameValue(const json& a, const json& b)
{
    if (a.is_number() && b.is_number())
    {
        if (a.is_number_float() || b.is_number_float() || a.is_number_unsigned() != b.is_number_unsigned())
        {
            return a.get<double>() == b.get<double>();
        }
        return a == b;
    }
    if (a.type() != b.type() || !a.is_structured())
    {
        return a == b;
    }
    if (a.size() != b.size())
    {
        return false;
    }
    // Objects iterate in key order on both sides.
    for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j)
    {
        if ((a.is_object() && i.key() != j.key()) || !SameValue(*i, *j))
        {
            return false;
        }
    }
    return true;
}
}  // namespace

TEST(JSONDifferential, ReadsWhatNlohmannReadsAndWritesWhatItAccepts)
{
    DocumentGenerator generator(0x5EED2026);
    const int documents = 2000;
    for (int n = 0; n < documents; ++n)
    {
        json original = generator.Document();
        // Both plain UTF-8 and all-ASCII escaped texts (with surrogate pairs), compact and indented.
        const std::string texts[] = {original.dump(), original.dump(4, ' ', true),
                                     original.dump(-1, ' ', true), original.dump(2)};
        for (const std::string& text : texts)
        {
            json reference = json::parse(text);
            TJSON ours(text);
            ASSERT_TRUE(SameAsReference(ours, reference, "$")) << "document " << n << ": " << text;
        }

        TJSON ours(original.dump());
        std::string compact = ours.ToString();
        int level = 0;
        std::string pretty = ours.ToString(&level);
        json fromCompact;
        json fromPretty;
        ASSERT_NO_THROW(fromCompact = json::parse(compact)) << compact;
        ASSERT_NO_THROW(fromPretty = json::parse(pretty)) << pretty;
        ASSERT_TRUE(SameValue(original, fromCompact)) << "document " << n << ": " << compact;
        ASSERT_TRUE(SameValue(original, fromPretty)) << "document " << n;
    }
}
