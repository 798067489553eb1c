#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "portable-core/json/TJSON.h"

namespace
{
// Checks that a test body frees every node it made.
class TJSONTest : public ::testing::Test
{
protected:
    void SetUp() override { aliveBefore_ = TJSON::GetGlobalObjectsCount(); }
    void TearDown() override { EXPECT_EQ(TJSON::GetGlobalObjectsCount(), aliveBefore_) << "nodes leaked"; }

private:
    int64_t aliveBefore_ = 0;
};
}  // namespace

TEST_F(TJSONTest, CopiesShareAndCopyIsDeep)
{
    TJSON a;
    a.AddInt("x", 1);
    TJSON shared = a;
    shared.AddInt("y", 2);
    EXPECT_TRUE(a.HasKey("y"));
    TJSON deep = a.Copy();
    deep.AddInt("z", 3);
    EXPECT_FALSE(a.HasKey("z"));
    EXPECT_TRUE(deep.HasKey("x"));
    EXPECT_EQ(a.GetNode()->GetRefCount(), 2);

    // Priority keys are not part of the text and don't survive a copy.
    a.SetPriorityObjects({"y"});
    EXPECT_EQ(a.ToString(), "{\"y\":2,\"x\":1}");
    EXPECT_EQ(a.Copy().ToString(), "{\"x\":1,\"y\":2}");

    TJSON other;
    other = a;
    EXPECT_EQ(other.GetNode(), a.GetNode());
    other = TJSONInt(4);
    EXPECT_EQ(other.GetInt(), 4);
    EXPECT_EQ(TJSONString("s").Copy().GetString(), "s");
}

TEST_F(TJSONTest, AddingReplacesAKeyAndReleasesTheOldValue)
{
    TJSON doc;
    TJSON child;
    child.AddInt("v", 1);
    doc.Add("k", child);
    EXPECT_EQ(child.GetNode()->GetRefCount(), 2);
    doc.AddString("k", "text");
    EXPECT_EQ(child.GetNode()->GetRefCount(), 1);
    EXPECT_EQ(doc.GetCount(), 1);
    EXPECT_EQ(doc.GetObject("k").GetString(), "text");
    EXPECT_TRUE(doc.Remove("k"));
    EXPECT_FALSE(doc.Remove("k"));
    EXPECT_EQ(doc.GetCount(), 0);
}

TEST_F(TJSONTest, EveryOperationIsHarmlessOnEveryKind)
{
    TJSON nodes[] = {TJSONNone(),      TJSONNull(),      TJSONBool(true), TJSONInt(7),
                     TJSONDouble(2.5), TJSONString("x"), TJSONArray(),    TJSONObject()};
    for (TJSON& node : nodes)
    {
        TJSON missing = node.GetObject("nope");
        EXPECT_FALSE(missing.IsValid());
        EXPECT_FALSE(missing.GetObject("deeper").GetIndObject(3).IsValid());
        EXPECT_FALSE(node.GetIndObject(-1).IsValid());
        EXPECT_FALSE(node.GetIndObject(99).IsValid());
        EXPECT_FALSE(node.Remove("nope"));
        EXPECT_FALSE(node.RemoveIndObject(0));
        EXPECT_FALSE(node.ContainsObject(TJSONInt(1)));
        node.SetPriorityObjects({"a"});
        int offset = 5;
        EXPECT_EQ(node.GetTicks(&offset), 0);
        EXPECT_EQ(offset, 5);
        (void)node.GetKeys();
        (void)node.ToString();
    }
    EXPECT_FALSE(nodes[0].AddInt(1));
    EXPECT_FALSE(nodes[0].AddInt("k", 1));
    EXPECT_FALSE(nodes[6].AddInt("k", 1));  // an array has no keys
    EXPECT_FALSE(nodes[7].AddInt(1));       // an object has no positions
    EXPECT_TRUE(nodes[6].AddInt(1));
    EXPECT_FALSE(TJSONNone().IsValidAndNotNull());
    EXPECT_FALSE(TJSONNull().IsValidAndNotNull());
    EXPECT_TRUE(TJSONInt(0).IsValidAndNotNull());
}

TEST_F(TJSONTest, ConversionsAcrossKindsAndTicksReading)
{
    EXPECT_EQ(TJSONDouble(-1.2).GetInt(), 0);
    EXPECT_EQ(TJSONDouble(2.5).GetInt(), 3);
    EXPECT_EQ(TJSONDouble(2.4).GetInt(), 2);
    EXPECT_EQ(TJSONDouble(1e300).GetInt(), INT64_MAX);
    EXPECT_TRUE(TJSONDouble(0.1).GetBool());
    EXPECT_FALSE(TJSONDouble(0.0).GetBool());
    EXPECT_EQ(TJSONBool(true).GetInt(), 1);
    EXPECT_EQ(TJSONBool(true).GetDouble(), 1.0);
    EXPECT_TRUE(TJSONInt(-3).GetBool());
    EXPECT_EQ(TJSONInt(-3).GetDouble(), -3.0);
    EXPECT_TRUE(TJSONString("12abc").GetBool());
    EXPECT_FALSE(TJSONString("abc").GetBool());
    EXPECT_EQ(TJSONString("  -42").GetInt(), -42);
    EXPECT_EQ(TJSONString("3.5e1").GetDouble(), 35.0);
    EXPECT_EQ(TJSONInt(5).GetString(), "");
    EXPECT_STREQ(TJSONInt(5).GetCString(), "");

    int offset = 0;
    EXPECT_EQ(TJSONString("/Date(1000+0060)/").GetTicks(&offset), 1000);
    EXPECT_EQ(offset, 60);
    EXPECT_EQ(TJSONString("/Date(1000-0060)/").GetTicks(&offset), 1000);
    EXPECT_EQ(offset, -60);
    EXPECT_EQ(TJSONString("/Date(77)/").GetTicks(&offset), 77);
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(TJSONString("/Date(77").GetTicks(), 0);
    EXPECT_EQ(TJSONString("/Date(5+0001)/").GetTicks(nullptr), 5);
}

TEST_F(TJSONTest, EqualityIgnoresKeyOrderButNotKindsOrValues)
{
    TJSON a("{\"x\":1,\"y\":[1,2,{\"z\":\"s\"}]}");
    TJSON b("{\"y\":[1,2,{\"z\":\"s\"}],\"x\":1}");
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == TJSON("{\"x\":1.0,\"y\":[1,2,{\"z\":\"s\"}]}"));
    EXPECT_FALSE(a == TJSON("{\"x\":1,\"y\":[2,1,{\"z\":\"s\"}]}"));
    EXPECT_FALSE(a == TJSON("{\"x\":1,\"y\":[1,2,{\"z\":\"s\"}],\"w\":0}"));
    EXPECT_TRUE(TJSON("[]") != TJSON("{}"));
    EXPECT_FALSE(TJSONDouble(std::nan("")) == TJSONDouble(std::nan("")));
    TJSON list("[1,\"a\",{\"k\":null}]");
    EXPECT_TRUE(list.ContainsObject(TJSON("{\"k\":null}")));
    EXPECT_FALSE(list.ContainsObject(TJSONString("b")));
}

TEST_F(TJSONTest, CyclesAreRefused)
{
    TJSON outer;
    TJSON inner = TJSONArray();
    EXPECT_TRUE(outer.Add("inner", inner));
    EXPECT_FALSE(outer.Add("self", outer));
    EXPECT_FALSE(inner.Add(outer));
    EXPECT_FALSE(inner.Add(inner));
    EXPECT_EQ(outer.GetCount(), 1);
    EXPECT_EQ(inner.GetCount(), 0);
    // The same child twice is sharing, not a cycle.
    EXPECT_TRUE(outer.Add("again", inner));
    EXPECT_EQ(outer.ToString(), "{\"again\":[],\"inner\":[]}");
}

TEST_F(TJSONTest, LongChainsAreFreedAndWrittenWithoutExhaustingTheStack)
{
    TJSON root = TJSONArray();
    TJSON tip = root;
    for (int i = 0; i < 300000; ++i)
    {
        TJSON next = TJSONArray();
        tip.Add(next);
        tip = next;
    }
    tip.AddInt(1);
    // Deeper than a reader would take: the written text ends at the limit.
    TJSON back(root.ToString());
    int depth = 0;
    for (TJSON walk = back; walk.IsArray(); walk = walk.GetIndObject(0))
    {
        ++depth;
    }
    EXPECT_EQ(depth, kCEJSONMaxNestingDepth);
    EXPECT_FALSE(root == back);
    EXPECT_TRUE(root == root);
}
