#include "portable-core/json/CEJSON.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "portable-core/DRAVLog.h"
#include "portable-core/json/CEJSONParseBuffer.h"
#include "portable-core/json/CEJSONTextSupport.h"

namespace
{
std::atomic<int64_t> sJSONAllocated{0};
std::atomic<int64_t> sJSONLeft{0};
}  // namespace

// Deleting a node releases its children. Done recursively, a long chain of
// nested containers would exhaust the stack, so nodes released while another
// release is running on this thread are queued and deleted by the outermost one.
class CEJSONReleaser
{
public:
    static void Destroy(const CEJSON* node)
    {
        if (pending_ != nullptr)
        {
            pending_->push_back(node);
            return;
        }
        std::vector<const CEJSON*> pending;
        pending_ = &pending;
        delete node;
        while (!pending.empty())
        {
            const CEJSON* next = pending.back();
            pending.pop_back();
            delete next;
        }
        pending_ = nullptr;
    }

private:
    static thread_local std::vector<const CEJSON*>* pending_;
};

thread_local std::vector<const CEJSON*>* CEJSONReleaser::pending_ = nullptr;

// ---------------------------------------------------------------------------
// Base node

CEJSON::CEJSON() : CEJSON(kCEJSONTypeNone) {}

CEJSON::CEJSON(int32_t type) : type_(type)
{
    sJSONAllocated.fetch_add(1, std::memory_order_relaxed);
    sJSONLeft.fetch_add(1, std::memory_order_relaxed);
}

CEJSON::~CEJSON()
{
    sJSONLeft.fetch_sub(1, std::memory_order_relaxed);
}

void CEJSON::Release() const
{
    if (refCount_.fetch_sub(1, std::memory_order_acq_rel) == 1)
    {
        CEJSONReleaser::Destroy(this);
    }
}

int64_t CEJSON::GetAllocatedCount()
{
    return sJSONAllocated.load(std::memory_order_relaxed);
}

int64_t CEJSON::GetAliveCount()
{
    return sJSONLeft.load(std::memory_order_relaxed);
}

int64_t CEJSON::GetTicks(int*) const
{
    return 0;
}

CEJSON* CEJSON::GetObject(const std::string&) const
{
    return new CEJSON();
}

CEJSON* CEJSON::GetIndObject(int64_t) const
{
    return new CEJSON();
}

bool CEJSON::HasKey(const std::string&) const
{
    return false;
}

std::vector<std::string> CEJSON::GetKeys() const
{
    return {};
}

bool CEJSON::AddObject(CEJSON* node, bool addRef)
{
    if (node != nullptr && !addRef)
    {
        node->Release();
    }
    return false;
}

bool CEJSON::AddObject(const std::string&, CEJSON* node, bool addRef)
{
    if (node != nullptr && !addRef)
    {
        node->Release();
    }
    return false;
}

bool CEJSON::Remove(const std::string&)
{
    return false;
}

bool CEJSON::RemoveIndObject(int64_t)
{
    return false;
}

bool CEJSON::ContainsObject(const CEJSON*) const
{
    return false;
}

bool CEJSON::IsSameAs(const CEJSON* other) const
{
    return other != nullptr && other->GetType() == GetType();
}

void CEJSON::SetPriorityObjects(const std::vector<std::string>&) {}

void CEJSON::Dump(const char* label, int* indent) const
{
    CEJSONParseBufferDebugOutput output(label);
    int level = indent ? *indent : 0;
    ToString(&level, output);
}

void CEJSON::ToString(int* indent, CEJSONParseBuffer& buffer) const
{
    WriteTo(indent, buffer, 1);
}

void CEJSON::WriteTo(int*, CEJSONParseBuffer&, int) const
{
    // The none node has no text.
}

void CEJSON::LinebreakAndIndent(int* indent, CEJSONParseBuffer& buffer, int delta)
{
    if (indent == nullptr)
    {
        return;
    }
    *indent += delta;
    static const char kTabs[] = "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
    auto addTabs = [&buffer](int count)
    {
        while (count > 0)
        {
            int chunk = std::min<int>(count, static_cast<int>(sizeof(kTabs) - 1));
            buffer.AddFormattingToBuffer(kTabs, chunk);
            count -= chunk;
        }
    };
    if (!buffer.LastAdditionWasFormatting())
    {
        if (buffer.GetLength() > 0)
        {
            buffer.AddFormattingToBuffer("\n", 1);
        }
        addTabs(*indent);
    }
    else
    {
        // Right behind a break: a container that starts here doesn't break twice.
        addTabs(delta);
    }
}

// Iterative, so that equality on any depth can't exhaust the stack.
bool CEJSON::operator==(const CEJSON& other) const
{
    std::vector<std::pair<const CEJSON*, const CEJSON*>> work;
    work.emplace_back(this, &other);
    while (!work.empty())
    {
        auto [a, b] = work.back();
        work.pop_back();
        if (a == b)
        {
            continue;
        }
        if (!a->IsSameAs(b))
        {
            return false;
        }
        if (a->IsObject())
        {
            if (!b->IsObject())
            {
                return false;
            }
            const auto& mapA = static_cast<const CEJSONObject*>(a)->Entries();
            const auto& mapB = static_cast<const CEJSONObject*>(b)->Entries();
            if (mapA.size() != mapB.size())
            {
                return false;
            }
            for (const auto& [key, value] : mapA)
            {
                auto found = mapB.find(key);
                if (found == mapB.end())
                {
                    return false;
                }
                work.emplace_back(value, found->second);
            }
        }
        else if (a->IsArray())
        {
            if (!b->IsArray())
            {
                return false;
            }
            const auto& itemsA = static_cast<const CEJSONArray*>(a)->Items();
            const auto& itemsB = static_cast<const CEJSONArray*>(b)->Items();
            if (itemsA.size() != itemsB.size())
            {
                return false;
            }
            for (size_t i = 0; i < itemsA.size(); ++i)
            {
                work.emplace_back(itemsA[i], itemsB[i]);
            }
        }
    }
    return true;
}

namespace
{
// True when target can be reached from root, root included. Adding a
// container into a node that it reaches would make a cycle, which could
// never be freed and never be written out.
bool Reaches(const CEJSON* root, const CEJSON* target)
{
    if (!root->IsArray() && !root->IsObject())
    {
        return root == target;
    }
    std::vector<const CEJSON*> work{root};
    while (!work.empty())
    {
        const CEJSON* node = work.back();
        work.pop_back();
        if (node == target)
        {
            return true;
        }
        if (node->IsArray())
        {
            for (const CEJSON* item : static_cast<const CEJSONArray*>(node)->Items())
            {
                if (item->IsArray() || item->IsObject() || item == target)
                {
                    work.push_back(item);
                }
            }
        }
        else if (node->IsObject())
        {
            for (const auto& entry : static_cast<const CEJSONObject*>(node)->Entries())
            {
                if (entry.second->IsArray() || entry.second->IsObject() || entry.second == target)
                {
                    work.push_back(entry.second);
                }
            }
        }
    }
    return false;
}

// Takes the reference for the container; false (and the handed-over
// reference released) when the node can't go in.
bool AcquireForContainer(const CEJSON* container, CEJSON* node, bool addRef)
{
    if (node == nullptr)
    {
        return false;
    }
    if (Reaches(node, container))
    {
        if (!addRef)
        {
            node->Release();
        }
        return false;
    }
    if (addRef)
    {
        node->AddRef();
    }
    return true;
}
}  // namespace

// ---------------------------------------------------------------------------
// Scalars

void CEJSONNull::WriteTo(int*, CEJSONParseBuffer& buffer, int) const
{
    buffer.AddToBuffer("null", 4);
}

bool CEJSONBool::IsSameAs(const CEJSON* other) const
{
    return other != nullptr && other->IsBool() && other->GetBool() == value_;
}

void CEJSONBool::WriteTo(int*, CEJSONParseBuffer& buffer, int) const
{
    if (value_)
    {
        buffer.AddToBuffer("true", 4);
    }
    else
    {
        buffer.AddToBuffer("false", 5);
    }
}

bool CEJSONInt::IsSameAs(const CEJSON* other) const
{
    return other != nullptr && other->IsInt() && other->GetInt() == value_;
}

void CEJSONInt::WriteTo(int*, CEJSONParseBuffer& buffer, int) const
{
    char text[24];
    auto result = std::to_chars(text, text + sizeof(text), value_);
    buffer.AddToBuffer(text, result.ptr - text);
}

int64_t CEJSONDouble::GetInt() const
{
    if (std::isnan(value_))
    {
        return 0;
    }
    double rounded = std::trunc(value_ + 0.5);
    if (rounded >= 9223372036854775808.0)
    {
        return std::numeric_limits<int64_t>::max();
    }
    if (rounded < -9223372036854775808.0)
    {
        return std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(rounded);
}

bool CEJSONDouble::IsSameAs(const CEJSON* other) const
{
    if (other == nullptr || !other->IsDouble())
    {
        return false;
    }
    double theirs = other->GetDouble();
    return !(value_ < theirs) && !(value_ > theirs) && !std::isnan(value_) && !std::isnan(theirs);
}

void CEJSONDouble::WriteTo(int*, CEJSONParseBuffer& buffer, int) const
{
    // JSON has no infinities or NaN; null keeps the document readable by any parser.
    if (!std::isfinite(value_))
    {
        buffer.AddToBuffer("null", 4);
        return;
    }
    // "%.17g", free of the process locale. Negative zero goes out as "0": "-0"
    // would read back as the integer 0 and write differently the next time.
    char text[40];
    double value = value_ == 0.0 ? 0.0 : value_;
    auto result = std::to_chars(text, text + sizeof(text), value, std::chars_format::general, 17);
    buffer.AddToBuffer(text, result.ptr - text);
}

bool CEJSONString::GetBool() const
{
    return strtoll(value_.c_str(), nullptr, 10) != 0;
}

int64_t CEJSONString::GetInt() const
{
    return strtoll(value_.c_str(), nullptr, 10);
}

double CEJSONString::GetDouble() const
{
    return CEJSONText_StringToDouble(value_.c_str());
}

int64_t CEJSONString::GetTicks(int* offset) const
{
    const char* text = value_.c_str();
    const char* open = strchr(text, '(');
    if (open == nullptr)
    {
        return 0;
    }
    const char* sign = strpbrk(open + 1, ")+-");
    if (sign == nullptr)
    {
        return 0;
    }
    if (offset != nullptr)
    {
        *offset = (*sign == ')') ? 0 : static_cast<int>(strtol(sign, nullptr, 10));
    }
    return strtoll(open + 1, nullptr, 10);
}

bool CEJSONString::IsSameAs(const CEJSON* other) const
{
    return other != nullptr && other->IsString() && static_cast<const CEJSONString*>(other)->value_ == value_;
}

void CEJSONString::WriteTo(int*, CEJSONParseBuffer& buffer, int) const
{
    buffer.AddCharacter('"');
    TJSON_EscapeString(value_, buffer);
    buffer.AddCharacter('"');
}

CEJSON* CEJSON::CreateTicksObject(int64_t ticks, int offset)
{
    char text[64];
    long long magnitude = offset < 0 ? -static_cast<long long>(offset) : offset;
    snprintf(text, sizeof(text), "/Date(%lld%s%04lld)/", static_cast<long long>(ticks),
             offset < 0 ? "-" : "+", magnitude);
    return new CEJSONString(text);
}

// ---------------------------------------------------------------------------
// Array

CEJSONArray::~CEJSONArray()
{
    for (CEJSON* item : items_)
    {
        item->Release();
    }
}

CEJSON* CEJSONArray::GetIndObject(int64_t index) const
{
    if (index < 0 || index >= static_cast<int64_t>(items_.size()))
    {
        return new CEJSON();
    }
    CEJSON* item = items_[static_cast<size_t>(index)];
    item->AddRef();
    return item;
}

bool CEJSONArray::AddObject(CEJSON* node, bool addRef)
{
    if (!AcquireForContainer(this, node, addRef))
    {
        return false;
    }
    items_.push_back(node);
    return true;
}

bool CEJSONArray::RemoveIndObject(int64_t index)
{
    if (index < 0 || index >= static_cast<int64_t>(items_.size()))
    {
        return false;
    }
    CEJSON* item = items_[static_cast<size_t>(index)];
    items_.erase(items_.begin() + index);
    item->Release();
    return true;
}

bool CEJSONArray::ContainsObject(const CEJSON* node) const
{
    if (node == nullptr)
    {
        return false;
    }
    for (const CEJSON* item : items_)
    {
        if (*item == *node)
        {
            return true;
        }
    }
    return false;
}

namespace
{
bool IsWritableContainer(const CEJSON* node, int depth)
{
    return !(node->IsArray() || node->IsObject()) || depth <= kCEJSONMaxNestingDepth;
}
}  // namespace

void CEJSONArray::WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const
{
    LinebreakAndIndent(indent, buffer, 0);
    buffer.AddCharacter('[');
    LinebreakAndIndent(indent, buffer, 1);
    bool first = true;
    // Items a few places ahead are asked for while one is written: each
    // item is a node of its own elsewhere in memory.
    constexpr size_t kAhead = 4;
    const size_t count = items_.size();
    for (size_t i = 0; i < count && i < kAhead; ++i)
    {
        __builtin_prefetch(items_[i]);
    }
    for (size_t i = 0; i < count; ++i)
    {
        const CEJSON* item = items_[i];
        if (i + kAhead < count)
        {
            __builtin_prefetch(items_[i + kAhead]);
        }
        // None nodes and containers too deep to read back have no text; a
        // comma for them would make the document invalid.
        if (!item->IsValid() || !IsWritableContainer(item, depth + 1))
        {
            continue;
        }
        if (!first)
        {
            buffer.AddCharacter(',');
            LinebreakAndIndent(indent, buffer, 0);
        }
        first = false;
        item->WriteTo(indent, buffer, depth + 1);
    }
    LinebreakAndIndent(indent, buffer, -1);
    buffer.AddCharacter(']');
}

// ---------------------------------------------------------------------------
// Object

CEJSONObject::CEJSONObject() : CEJSON(kCEJSONTypeObject)
{
    map_.max_load_factor(1.0f);
}

CEJSONObject::~CEJSONObject()
{
    for (auto& entry : map_)
    {
        entry.second->Release();
    }
}

CEJSON* CEJSONObject::GetObject(const std::string& key) const
{
    auto found = map_.find(key);
    if (found == map_.end())
    {
        return new CEJSON();
    }
    found->second->AddRef();
    return found->second;
}

bool CEJSONObject::HasKey(const std::string& key) const
{
    return map_.find(key) != map_.end();
}

std::vector<std::string> CEJSONObject::GetKeys() const
{
    std::vector<std::string> keys;
    keys.reserve(map_.size());
    for (const auto& entry : map_)
    {
        keys.push_back(entry.first);
    }
    std::sort(keys.begin(), keys.end(), CEJSONKeySorter());
    return keys;
}

bool CEJSONObject::AddObject(const std::string& key, CEJSON* node, bool addRef)
{
    if (!AcquireForContainer(this, node, addRef))
    {
        return false;
    }
    auto [where, inserted] = map_.try_emplace(key, node);
    if (!inserted)
    {
        CEJSON* former = where->second;
        where->second = node;
        former->Release();
    }
    return true;
}

void CEJSONObject::AdoptValue(std::string&& key, CEJSON* node)
{
    auto [where, inserted] = map_.try_emplace(std::move(key), node);
    if (!inserted)
    {
        CEJSON* former = where->second;
        where->second = node;
        former->Release();
    }
}

bool CEJSONObject::Remove(const std::string& key)
{
    auto found = map_.find(key);
    if (found == map_.end())
    {
        return false;
    }
    CEJSON* value = found->second;
    map_.erase(found);
    value->Release();
    return true;
}

void CEJSONObject::SetPriorityObjects(const std::vector<std::string>& keys)
{
    priorityKeys_ = keys;
}

void CEJSONObject::WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const
{
    // Most objects are small: their pairs are sorted on the stack.
    constexpr size_t kInlinePairs = 16;
    CEJSONObjectKeyValue inlinePairs[kInlinePairs];
    std::vector<CEJSONObjectKeyValue> heapPairs;
    CEJSONObjectKeyValue* pairs = inlinePairs;
    if (map_.size() > kInlinePairs)
    {
        heapPairs.resize(map_.size());
        pairs = heapPairs.data();
    }
    // First the pairs, asking for every value's memory; then the values'
    // kinds, which by then are on their way instead of missed one by one.
    size_t count = 0;
    for (const auto& entry : map_)
    {
        __builtin_prefetch(entry.second);
        pairs[count++] = {&entry.first, entry.second, false};
    }
    const bool anyPriority = !priorityKeys_.empty();
    size_t kept = 0;
    for (size_t i = 0; i < count; ++i)
    {
        const CEJSON* value = pairs[i].value;
        if (!value->IsValid() || !IsWritableContainer(value, depth + 1))
        {
            continue;
        }
        const std::string& key = *pairs[i].key;
        const bool isPriority =
            anyPriority && std::find(priorityKeys_.begin(), priorityKeys_.end(), key) != priorityKeys_.end();
        pairs[kept++] = {&key, value, isPriority};
    }
    count = kept;
    // The order of CEJSONObjectSorter, without copying the priority keys:
    // std::string compares bytes as unsigned and then lengths, as strcmp order asks.
    std::sort(pairs, pairs + count,
              [](const CEJSONObjectKeyValue& a, const CEJSONObjectKeyValue& b)
              {
                  if (a.isPriority != b.isPriority)
                  {
                      return a.isPriority;
                  }
                  return a.key->compare(*b.key) < 0;
              });

    LinebreakAndIndent(indent, buffer, 0);
    buffer.AddCharacter('{');
    LinebreakAndIndent(indent, buffer, 1);
    for (size_t i = 0; i < count; ++i)
    {
        if (i > 0)
        {
            buffer.AddCharacter(',');
            LinebreakAndIndent(indent, buffer, 0);
        }
        buffer.AddCharacter('"');
        TJSON_EscapeString(*pairs[i].key, buffer);
        buffer.AddToBuffer("\":", 2);
        pairs[i].value->WriteTo(indent, buffer, depth + 1);
    }
    LinebreakAndIndent(indent, buffer, -1);
    buffer.AddCharacter('}');
}

bool CEJSONObjectSorter::IsPriorityKey(const std::string& key) const
{
    return std::find(priorityKeys_.begin(), priorityKeys_.end(), key) != priorityKeys_.end();
}

bool CEJSONObjectSorter::operator()(const CEJSONObjectKeyValue& a, const CEJSONObjectKeyValue& b) const
{
    if (a.isPriority != b.isPriority)
    {
        return a.isPriority;
    }
    return CEJSONKeySorter()(*a.key, *b.key);
}

bool CEJSONKeySorter::operator()(const std::string& a, const std::string& b) const
{
    // strcmp order on the bytes as unsigned; a key with a NUL inside is
    // ordered by its whole length, so that equal prefixes stay apart.
    return std::lexicographical_compare(
        a.begin(), a.end(), b.begin(), b.end(),
        [](char x, char y) { return static_cast<unsigned char>(x) < static_cast<unsigned char>(y); });
}

// ---------------------------------------------------------------------------
// Escaping

void TJSON_EscapeString(const char* text, CEJSONParseBuffer& buffer)
{
    if (text == nullptr)
    {
        return;
    }
    CEJSONText_Escape(text, strlen(text), buffer);
}

void TJSON_EscapeString(const std::string& text, CEJSONParseBuffer& buffer)
{
    CEJSONText_Escape(text.data(), text.size(), buffer);
}
