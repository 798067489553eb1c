#include "portable-core/json/TJSON.h"

#include <cstdio>
#include <utility>

#include "portable-core/json/CEJSONParseBuffer.h"

namespace
{
CEJSON* ParseDocument(const char* text)
{
    if (text == nullptr)
    {
        return new CEJSONObject();
    }
    const char* first = text;
    while (*first == ' ' || *first == '\t' || *first == '\n' || *first == '\r')
    {
        ++first;
    }
    return *first == '[' ? CEJSON::CreateArrayObject(text) : CEJSON::CreateObject(text);
}
}  // namespace

TJSON::TJSON() : node_(new CEJSONObject()) {}

TJSON::TJSON(CEJSON* node, bool addRef) : node_(node)
{
    if (node_ == nullptr)
    {
        node_ = new CEJSON();
    }
    else if (addRef)
    {
        node_->AddRef();
    }
}

TJSON::TJSON(const char* text) : node_(ParseDocument(text)) {}

TJSON::TJSON(const std::string& text) : node_(ParseDocument(text.c_str())) {}

TJSON::TJSON(const TJSON& other) : node_(other.node_)
{
    node_->AddRef();
}

// A moved-from handle keeps a none node, so that it stays usable.
TJSON::TJSON(TJSON&& other) noexcept : node_(std::exchange(other.node_, new CEJSON())) {}

TJSON& TJSON::operator=(const TJSON& other)
{
    if (node_ != other.node_)
    {
        other.node_->AddRef();
        node_->Release();
        node_ = other.node_;
    }
    return *this;
}

TJSON& TJSON::operator=(TJSON&& other) noexcept
{
    if (this != &other)
    {
        std::swap(node_, other.node_);
    }
    return *this;
}

TJSON::~TJSON()
{
    node_->Release();
}

TJSON TJSON::Copy() const
{
    if (!node_->IsArray() && !node_->IsObject())
    {
        // Scalars have no document text of their own to parse back.
        switch (node_->GetType())
        {
            case kCEJSONTypeNull:
                return TJSONNull();
            case kCEJSONTypeBool:
                return TJSONBool(node_->GetBool());
            case kCEJSONTypeInt:
                return TJSONInt(node_->GetInt());
            case kCEJSONTypeDouble:
                return TJSONDouble(node_->GetDouble());
            case kCEJSONTypeString:
                return TJSONString(node_->GetString());
            default:
                return TJSONNone();
        }
    }
    return TJSON(ToString(nullptr));
}

bool TJSON::AddBool(bool value)
{
    return node_->AddObject(new CEJSONBool(value), false);
}

bool TJSON::AddInt(int64_t value)
{
    return node_->AddObject(new CEJSONInt(value), false);
}

bool TJSON::AddDouble(double value)
{
    return node_->AddObject(new CEJSONDouble(value), false);
}

bool TJSON::AddString(const std::string& value)
{
    return node_->AddObject(new CEJSONString(value), false);
}

bool TJSON::Add(const TJSON& item)
{
    return node_->AddObject(item.node_, true);
}

bool TJSON::AddBool(const std::string& key, bool value)
{
    return node_->AddObject(key, new CEJSONBool(value), false);
}

bool TJSON::AddInt(const std::string& key, int64_t value)
{
    return node_->AddObject(key, new CEJSONInt(value), false);
}

bool TJSON::AddDouble(const std::string& key, double value)
{
    return node_->AddObject(key, new CEJSONDouble(value), false);
}

bool TJSON::AddString(const std::string& key, const std::string& value)
{
    return node_->AddObject(key, new CEJSONString(value), false);
}

bool TJSON::AddTicks(const std::string& key, int64_t ticks, int offset)
{
    return node_->AddObject(key, CEJSON::CreateTicksObject(ticks, offset), false);
}

bool TJSON::Add(const std::string& key, const TJSON& item)
{
    return node_->AddObject(key, item.node_, true);
}

std::string TJSON::ToString(int* indent) const
{
    CEJSONParseBuffer buffer;
    node_->ToString(indent, buffer);
    return buffer.TakeString();
}

void TJSON::Export(std::string& text, int* indent) const
{
    text = ToString(indent);
}

std::string TJSON::ExportDump(bool toConsole, bool) const
{
    int level = 0;
    std::string text = ToString(&level);
    if (toConsole)
    {
        puts(text.c_str());
    }
    return text;
}

void TJSON::Debug(const char* label) const
{
    node_->Dump(label, nullptr);
}

int64_t TJSON::GetGlobalObjectsCount()
{
    return CEJSON::GetAliveCount();
}
