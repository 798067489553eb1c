#include "engine/sinks/DRAVSinkPreview.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
class PreviewTest : public ::testing::Test
{
protected:
    void InstallRenderers(bool refuseVideo = false)
    {
        DRAVUnitFactory factory;
        factory.createSink = [this, refuseVideo](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init,
                                                 std::shared_ptr<DRAVUnit>* out)
        {
            if (refuseVideo && type == DRAVSinkPreview::kVideoRenderer)
            {
                return DRAVResult(kDRAVResultErrUnknownUnit);
            }
            auto renderer =
                std::make_shared<RecordingSink>("renderer " + std::to_string(type), DRAVSinkConfig{type});
            renderer->SetOwner(owner);
            if (init)
            {
                renderer->Init();
            }
            renderer->SetPause(false);
            std::lock_guard<std::mutex> lock(mutex_);
            types_.push_back(type);
            *out = renderer;
            return DRAVResult();
        };
        factory.removeUnit = [this](const std::shared_ptr<DRAVUnit>&)
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ++removed_;
        };
        DRAVUnitFactory::Install(factory);
    }
    std::vector<int32_t> Types()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return types_;
    }

    void TearDown() override { EXPECT_TRUE(DRAVUnit::WaitForPendingReinits(60000)); }

    EngineEnvironment environment_;
    std::mutex mutex_;
    std::vector<int32_t> types_;
    int removed_ = 0;
};
}  // namespace

TEST_F(PreviewTest, WithoutRenderersInitFails)
{
    auto preview = std::make_shared<DRAVSinkPreview>(DRAVSinkConfig{});
    EXPECT_EQ(preview->Init(), kDRAVResultErrUnknownUnit);
    EXPECT_FALSE(preview->IsUnitInitialized());
    EXPECT_EQ(preview->GetInputPin(0), nullptr);

    InstallRenderers(true);
    EXPECT_EQ(preview->Init(), kDRAVResultErrUnknownUnit);
    EXPECT_EQ(preview->GetAudioRenderer(), nullptr);
}

TEST_F(PreviewTest, RoutesVideoAndAudioToTheirRenderers)
{
    InstallRenderers();
    auto preview = std::make_shared<DRAVSinkPreview>(DRAVSinkConfig{});
    ASSERT_EQ(preview->Init(), kDRAVResultOk);
    EXPECT_EQ(preview->GetType(), DRAVSink::kTypePreview);
    EXPECT_EQ(Types(),
              (std::vector<int32_t>{DRAVSinkPreview::kVideoRenderer, DRAVSinkPreview::kAudioRenderer}));
    auto audio = std::dynamic_pointer_cast<RecordingSink>(preview->GetAudioRenderer());
    auto video = std::dynamic_pointer_cast<RecordingSink>(preview->GetVideoRenderer());
    ASSERT_NE(audio, nullptr);
    ASSERT_NE(video, nullptr);

    EXPECT_EQ(preview->GetInputPin(1)->MediaBufferReceived(nullptr, MakeFrame(0, 960)),
              kDRAVResultErrInvalidState);
    preview->SetPause(false);
    EXPECT_EQ(preview->SendAudioFrame(MakeFrame(0, 960)), kDRAVResultOk);
    EXPECT_EQ(preview->SendFrame(0, MakeFrame(0, 960)), kDRAVResultOk);
    EXPECT_EQ(audio->PinsSeen().size(), 1u);
    EXPECT_EQ(video->PinsSeen().size(), 1u);

    preview->Deinit();
    EXPECT_EQ(removed_, 2);
    EXPECT_FALSE(audio->IsUnitInitialized());
    EXPECT_EQ(preview->GetAudioRenderer(), nullptr);
}

TEST_F(PreviewTest, ChoosingTheAlternativeRendererRebuildsTheSink)
{
    InstallRenderers();
    auto preview = std::make_shared<DRAVSinkPreview>(DRAVSinkConfig{});
    ASSERT_EQ(preview->Init(), kDRAVResultOk);
    preview->SetPause(false);
    preview->SetBoolProperty(kPropertySinkAlternativeAudioRenderer, true);
    ASSERT_TRUE(DRAVUnit::WaitForPendingReinits(60000));
    EXPECT_TRUE(preview->IsAlternativeAudioRendererSelected());
    EXPECT_EQ(preview->GetAudioRenderer()->GetFriendlyName(), "renderer 6");
    EXPECT_EQ(preview->GetUnitState(), kDRAVUnitStateRunning);

    preview->SelectAlternativeVideoRenderer(true);
    ASSERT_TRUE(DRAVUnit::WaitForPendingReinits(60000));
    EXPECT_EQ(preview->GetVideoRenderer()->GetFriendlyName(), "renderer 4");
    EXPECT_EQ(preview->SendAudioFrame(MakeFrame(0, 960)), kDRAVResultOk);
}
