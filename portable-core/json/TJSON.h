#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "portable-core/json/CEJSON.h"

// Value handle of a JSON document node. Copies share the node; Copy() makes
// an independent deep copy. Every operation is safe on every kind of node.
class TJSON
{
public:
    // An empty object.
    TJSON();
    // Wraps a node; takes a reference of its own when addRef is true,
    // otherwise adopts the caller's.
    TJSON(CEJSON* node, bool addRef);
    // Parses text: an array when its first non-white byte is "[", else an
    // object. Damaged text gives what could be read; null gives an empty object.
    explicit TJSON(const char* text);
    explicit TJSON(const std::string& text);
    TJSON(const TJSON& other);
    TJSON(TJSON&& other) noexcept;
    TJSON& operator=(const TJSON& other);
    TJSON& operator=(TJSON&& other) noexcept;
    virtual ~TJSON();

    TJSON Copy() const;

    bool IsValid() const { return node_->IsValid(); }
    bool IsString() const { return node_->IsString(); }
    bool IsBool() const { return node_->IsBool(); }
    bool IsInt() const { return node_->IsInt(); }
    bool IsDouble() const { return node_->IsDouble(); }
    bool IsObject() const { return node_->IsObject(); }
    bool IsArray() const { return node_->IsArray(); }
    bool IsNull() const { return node_->IsNull(); }
    bool IsValidAndNotNull() const { return node_->IsValid() && !node_->IsNull(); }
    int32_t GetType() const { return node_->GetType(); }

    std::string GetString() const { return node_->GetString(); }
    const char* GetCString() const { return node_->GetCString(); }
    bool GetBool() const { return node_->GetBool(); }
    int64_t GetInt() const { return node_->GetInt(); }
    double GetDouble() const { return node_->GetDouble(); }
    int64_t GetTicks(int* offset = nullptr) const { return node_->GetTicks(offset); }

    TJSON GetObject(const std::string& key) const { return TJSON(node_->GetObject(key), false); }
    TJSON GetIndObject(int64_t index) const { return TJSON(node_->GetIndObject(index), false); }
    bool HasKey(const std::string& key) const { return node_->HasKey(key); }
    std::vector<std::string> GetKeys() const { return node_->GetKeys(); }
    int64_t GetCount() const { return node_->GetCount(); }
    bool Remove(const std::string& key) { return node_->Remove(key); }
    bool RemoveIndObject(int64_t index) { return node_->RemoveIndObject(index); }
    bool ContainsObject(const TJSON& item) const { return node_->ContainsObject(item.node_); }
    void SetPriorityObjects(const std::vector<std::string>& keys) { node_->SetPriorityObjects(keys); }

    bool operator==(const TJSON& other) const { return *node_ == *other.node_; }
    bool operator!=(const TJSON& other) const { return !(*this == other); }

    // Array items. False on anything but an array, or when the item would
    // contain the array itself.
    bool AddBool(bool value);
    bool AddInt(int64_t value);
    bool AddDouble(double value);
    bool AddString(const std::string& value);
    bool Add(const TJSON& item);

    // Object members; an existing key is replaced. False on anything but an object.
    bool AddBool(const std::string& key, bool value);
    bool AddInt(const std::string& key, int64_t value);
    bool AddDouble(const std::string& key, double value);
    bool AddString(const std::string& key, const std::string& value);
    bool AddTicks(const std::string& key, int64_t ticks, int offset);
    bool Add(const std::string& key, const TJSON& item);

    // Text of the document: compact with a null indent, else pretty from that level.
    std::string ToString(int* indent = nullptr) const;
    void Export(std::string& text, int* indent = nullptr) const;
    // Pretty text from level 0; printed with puts when toConsole is set.
    std::string ExportDump(bool toConsole, bool unused = false) const;
    void Dump(const char* label, int* indent = nullptr) const { node_->Dump(label, indent); }
    // Pretty text to the log, line by line.
    void Debug(const char* label = nullptr) const;

    CEJSON* GetNode() const { return node_; }

    // Nodes alive in the process.
    static int64_t GetGlobalObjectsCount();

private:
    CEJSON* node_;
};

class TJSONObject : public TJSON
{
public:
    TJSONObject() : TJSON() {}
};

class TJSONNone : public TJSON
{
public:
    TJSONNone() : TJSON(new CEJSON(), false) {}
};

class TJSONNull : public TJSON
{
public:
    TJSONNull() : TJSON(new CEJSONNull(), false) {}
};

class TJSONBool : public TJSON
{
public:
    explicit TJSONBool(bool value) : TJSON(new CEJSONBool(value), false) {}
};

class TJSONInt : public TJSON
{
public:
    explicit TJSONInt(int64_t value) : TJSON(new CEJSONInt(value), false) {}
};

class TJSONDouble : public TJSON
{
public:
    explicit TJSONDouble(double value) : TJSON(new CEJSONDouble(value), false) {}
};

class TJSONString : public TJSON
{
public:
    explicit TJSONString(const std::string& value) : TJSON(new CEJSONString(value), false) {}
};

// A date as text: "/Date(ticks+offset)/".
class TJSONTicks : public TJSON
{
public:
    TJSONTicks(int64_t ticks, int offset) : TJSON(CEJSON::CreateTicksObject(ticks, offset), false) {}
};

class TJSONArray : public TJSON
{
public:
    TJSONArray() : TJSON(new CEJSONArray(), false) {}
};
