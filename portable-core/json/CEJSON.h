#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class CEJSONParseBuffer;

// Node kinds; the numbers are stable and may be stored.
enum CEJSONType : int32_t
{
    kCEJSONTypeNone = 0,
    kCEJSONTypeNull = 1,
    kCEJSONTypeBool = 2,
    kCEJSONTypeInt = 3,
    kCEJSONTypeDouble = 4,
    kCEJSONTypeString = 5,
    kCEJSONTypeArray = 6,
    kCEJSONTypeObject = 7,
};

// Deepest nesting of arrays and objects that is read or written. The parser
// stops at a deeper container as at any other damage, and the writer leaves
// it out, so no document can exhaust the stack.
constexpr int kCEJSONMaxNestingDepth = 256;

// Reference-counted node of a JSON document. A new node has one reference,
// which its creator owns. Every operation is defined on every node, with a
// harmless answer where it makes no sense, so callers never need to check
// the kind first. The base class itself is the "none" node: no value at all.
class CEJSON
{
public:
    CEJSON();
    CEJSON(const CEJSON&) = delete;
    CEJSON& operator=(const CEJSON&) = delete;

    void AddRef() const { refCount_.fetch_add(1, std::memory_order_relaxed); }
    void Release() const;
    int32_t GetRefCount() const { return refCount_.load(std::memory_order_relaxed); }

    virtual bool IsValid() const { return false; }
    virtual bool IsString() const { return false; }
    virtual bool IsBool() const { return false; }
    virtual bool IsInt() const { return false; }
    virtual bool IsDouble() const { return false; }
    virtual bool IsObject() const { return false; }
    virtual bool IsArray() const { return false; }
    virtual bool IsNull() const { return false; }
    virtual int32_t GetType() const { return type_; }

    virtual std::string GetString() const { return std::string(); }
    // Stays valid while the node lives and is not changed.
    virtual const char* GetCString() const { return ""; }
    virtual bool GetBool() const { return false; }
    virtual int64_t GetInt() const { return 0; }
    virtual double GetDouble() const { return 0.0; }
    // Reads a "/Date(ticks+offset)/" text; 0 and offset untouched when there is none.
    virtual int64_t GetTicks(int* offset) const;

    // Children come back with a reference that the caller owns; a miss gives a new none node.
    virtual CEJSON* GetObject(const std::string& key) const;
    virtual CEJSON* GetIndObject(int64_t index) const;
    virtual bool HasKey(const std::string& key) const;
    // Keys in strcmp order.
    virtual std::vector<std::string> GetKeys() const;
    // Appends to an array. With addRef false the caller's reference is handed
    // over, also when the node can't be added (it is then released).
    virtual bool AddObject(CEJSON* node, bool addRef);
    // Sets a key of an object, replacing and releasing a former value.
    virtual bool AddObject(const std::string& key, CEJSON* node, bool addRef);
    virtual int64_t GetCount() const { return 0; }
    virtual bool Remove(const std::string& key);
    virtual bool RemoveIndObject(int64_t index);
    virtual bool ContainsObject(const CEJSON* node) const;
    // Same kind and, for scalars, same value.
    virtual bool IsSameAs(const CEJSON* other) const;
    // Deep equality; an object's key order plays no part.
    bool operator==(const CEJSON& other) const;
    bool operator!=(const CEJSON& other) const { return !(*this == other); }
    virtual void Dump(const char* label, int* indent) const;
    virtual void SetPriorityObjects(const std::vector<std::string>& keys);

    // Writes the node as text. A null indent gives compact text, a pointer to
    // a level pretty text with tab indents.
    void ToString(int* indent, CEJSONParseBuffer& buffer) const;

    // Parsers. They never fail: damaged text gives what could be read.
    static CEJSON* CreateObject(const char* text);
    static CEJSON* CreateArrayObject(const char* text);
    static CEJSON* CreateTicksObject(int64_t ticks, int offset);

    // Nodes made and nodes still alive, for leak checks.
    static int64_t GetAllocatedCount();
    static int64_t GetAliveCount();

    // depth counts containers from 1 at the top.
    virtual void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const;

protected:
    explicit CEJSON(int32_t type);
    virtual ~CEJSON();

    // The same, once for a line break and indent before and around containers.
    static void LinebreakAndIndent(int* indent, CEJSONParseBuffer& buffer, int delta);

private:
    friend class CEJSONReleaser;
    int32_t type_;
    mutable std::atomic<int32_t> refCount_{1};
};

class CEJSONNull : public CEJSON
{
public:
    CEJSONNull() : CEJSON(kCEJSONTypeNull) {}
    bool IsValid() const override { return true; }
    bool IsNull() const override { return true; }
    void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const override;
};

class CEJSONBool : public CEJSON
{
public:
    explicit CEJSONBool(bool value) : CEJSON(kCEJSONTypeBool), value_(value) {}
    bool IsValid() const override { return true; }
    bool IsBool() const override { return true; }
    bool GetBool() const override { return value_; }
    int64_t GetInt() const override { return value_ ? 1 : 0; }
    double GetDouble() const override { return value_ ? 1.0 : 0.0; }
    bool IsSameAs(const CEJSON* other) const override;
    void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const override;

private:
    bool value_;
};

class CEJSONInt : public CEJSON
{
public:
    explicit CEJSONInt(int64_t value) : CEJSON(kCEJSONTypeInt), value_(value) {}
    bool IsValid() const override { return true; }
    bool IsInt() const override { return true; }
    bool GetBool() const override { return value_ != 0; }
    int64_t GetInt() const override { return value_; }
    double GetDouble() const override { return static_cast<double>(value_); }
    bool IsSameAs(const CEJSON* other) const override;
    void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const override;

private:
    int64_t value_;
};

class CEJSONDouble : public CEJSON
{
public:
    explicit CEJSONDouble(double value) : CEJSON(kCEJSONTypeDouble), value_(value) {}
    bool IsValid() const override { return true; }
    bool IsDouble() const override { return true; }
    bool GetBool() const override { return value_ != 0.0; }
    // Rounds by adding 0.5 and cutting toward zero; out-of-range values saturate.
    int64_t GetInt() const override;
    double GetDouble() const override { return value_; }
    bool IsSameAs(const CEJSON* other) const override;
    void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const override;

private:
    double value_;
};

class CEJSONString : public CEJSON
{
public:
    explicit CEJSONString(std::string value) : CEJSON(kCEJSONTypeString), value_(std::move(value)) {}
    bool IsValid() const override { return true; }
    bool IsString() const override { return true; }
    std::string GetString() const override { return value_; }
    const char* GetCString() const override { return value_.c_str(); }
    bool GetBool() const override;
    int64_t GetInt() const override;
    double GetDouble() const override;
    int64_t GetTicks(int* offset) const override;
    bool IsSameAs(const CEJSON* other) const override;
    void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const override;

    const std::string& Value() const { return value_; }

private:
    std::string value_;
};

class CEJSONArray : public CEJSON
{
public:
    CEJSONArray() : CEJSON(kCEJSONTypeArray) {}
    bool IsValid() const override { return true; }
    bool IsArray() const override { return true; }
    CEJSON* GetIndObject(int64_t index) const override;
    using CEJSON::AddObject;
    bool AddObject(CEJSON* node, bool addRef) override;
    int64_t GetCount() const override { return static_cast<int64_t>(items_.size()); }
    bool RemoveIndObject(int64_t index) override;
    bool ContainsObject(const CEJSON* node) const override;
    void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const override;

    const std::vector<CEJSON*>& Items() const { return items_; }
    // Takes over a reference to a node known to be new; for the parser.
    void AdoptItem(CEJSON* node) { items_.push_back(node); }

protected:
    ~CEJSONArray() override;

private:
    std::vector<CEJSON*> items_;
};

class CEJSONObject : public CEJSON
{
public:
    using Map = std::unordered_map<std::string, CEJSON*>;

    CEJSONObject();
    bool IsValid() const override { return true; }
    bool IsObject() const override { return true; }
    CEJSON* GetObject(const std::string& key) const override;
    bool HasKey(const std::string& key) const override;
    std::vector<std::string> GetKeys() const override;
    using CEJSON::AddObject;
    bool AddObject(const std::string& key, CEJSON* node, bool addRef) override;
    int64_t GetCount() const override { return static_cast<int64_t>(map_.size()); }
    bool Remove(const std::string& key) override;
    void SetPriorityObjects(const std::vector<std::string>& keys) override;
    void WriteTo(int* indent, CEJSONParseBuffer& buffer, int depth) const override;

    const Map& Entries() const { return map_; }
    const std::vector<std::string>& PriorityKeys() const { return priorityKeys_; }
    // Takes over a reference to node without the checks of AddObject; for the parser.
    void AdoptValue(std::string&& key, CEJSON* node);

protected:
    ~CEJSONObject() override;

private:
    Map map_;
    std::vector<std::string> priorityKeys_;
};

// One key/value pair of an object, gathered for sorting; points into the object.
struct CEJSONObjectKeyValue
{
    const std::string* key;
    const CEJSON* value;
    bool isPriority;
};

// Priority keys first, then strcmp order within each class.
class CEJSONObjectSorter
{
public:
    explicit CEJSONObjectSorter(std::vector<std::string> priorityKeys)
        : priorityKeys_(std::move(priorityKeys))
    {
    }
    bool IsPriorityKey(const std::string& key) const;
    bool operator()(const CEJSONObjectKeyValue& a, const CEJSONObjectKeyValue& b) const;

private:
    std::vector<std::string> priorityKeys_;
};

// strcmp order of keys.
struct CEJSONKeySorter
{
    bool operator()(const std::string& a, const std::string& b) const;
};

// Writes text as the inside of a JSON string: escapes, and drops bytes that
// are not part of well-formed UTF-8. A null text writes nothing.
void TJSON_EscapeString(const char* text, CEJSONParseBuffer& buffer);
void TJSON_EscapeString(const std::string& text, CEJSONParseBuffer& buffer);
