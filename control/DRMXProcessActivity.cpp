#include "control/DRMXProcessActivity.h"

#include <mutex>

#include "platform/Platform.h"

struct DRMXProcessActivity::Impl
{
    std::mutex mutex;
    // The platform whose activity is running; null while none runs. Holding
    // it keeps End() on the same backend even if the host switches platforms.
    std::shared_ptr<tidemix::platform::Platform> token;
};

DRMXProcessActivity::DRMXProcessActivity() : impl_(std::make_unique<Impl>()) {}

DRMXProcessActivity::~DRMXProcessActivity()
{
    End();
}

void DRMXProcessActivity::Begin()
{
    std::lock_guard lock(impl_->mutex);
    if (impl_->token)
    {
        return;
    }
    impl_->token = tidemix::platform::Platform::Current();
    impl_->token->Activity().Begin("Tidemix Mixer");
}

void DRMXProcessActivity::End()
{
    std::lock_guard lock(impl_->mutex);
    if (!impl_->token)
    {
        return;
    }
    impl_->token->Activity().End();
    impl_->token.reset();
}

bool DRMXProcessActivity::IsActive() const
{
    std::lock_guard lock(impl_->mutex);
    return impl_->token != nullptr;
}
