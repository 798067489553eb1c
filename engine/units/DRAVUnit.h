#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/units/DRAVUnitInputPin.h"
#include "engine/units/DRAVUnitInterface.h"
#include "engine/units/DRAVUnitOutputPin.h"
#include "engine/units/DRAVUnitState.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVObject.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/DplSharedSlot.h"

// One processing element of the engine, with input and output pins, child
// units and an owner. A unit must be held by a shared_ptr before Init.
//
// Frames may arrive on any thread while another thread changes the unit's
// state or rebuilds it: pins and children are taken under their locks and
// kept alive by shared_ptr for the call, and no lock of the unit is held
// while a frame is handed on or a pin's thread is stopped.
class DRAVUnit : public DRAVObject, public DRAVUnitInterface
{
public:
    // A helper unit that its owner starts and stops at will.
    struct ChildUnitType
    {
        static constexpr int32_t kCategorySink = 2;
        static constexpr int32_t kCategoryFilter = 3;
        int32_t category = 0;
        int32_t type = 0;
    };

    class ChildUnit
    {
    public:
        // Replaces any former child. ErrInvalidParameter for a category other
        // than sink or filter.
        DRAVResult StartUnit(ChildUnitType type, const std::shared_ptr<DRAVUnit>& owner,
                             const std::shared_ptr<DRAVMediaBufferDelegate>& receiver, bool init);
        DRAVResult StopUnit(const std::shared_ptr<DRAVUnit>& owner);
        // On any thread, a device thread or the mix's thread included: a
        // pointer copy under a lock that is held for nothing else, so it
        // never waits for a start or stop in progress.
        std::shared_ptr<DRAVUnit> GetUnit() const { return published_.Load(); }

    private:
        // Serialises starts and stops, which create and tear down units.
        CDplThreadMutex mutex_;
        std::shared_ptr<DRAVUnit> unit_;
        // unit_ as the frames' way sees it.
        DplSharedSlot<DRAVUnit> published_;
    };

    DRAVUnit(const std::string& friendlyName, KVCMap* propertyMap, int inputPins, int outputPins);
    ~DRAVUnit() override;

    static KVCMap* GetMyObjectProperties();

    using DRAVObject::UpdateObserver;

    virtual void SetVerboseLogging(bool verbose);
    virtual bool GetVerboseLogging();
    virtual void SetPreserveBuffer(bool preserve);
    virtual bool GetPreserveBuffer();
    virtual double GetPinIn0FramerateFps();
    virtual std::string GetConnectedPinOut0();
    virtual std::string GetConnectedPinOut1();
    virtual std::string GetConnectedPinOut2();
    virtual std::string GetConnectedPin(bool input, int index);
    virtual void SetPause(bool pause);
    virtual bool GetPause();

    DRAVResult Init() override;
    DRAVResult InitUnit(DRAVPinType input, DRAVPinType output) override;
    DRAVResult Deinit() override;
    DRAVUnitState GetUnitState() override;
    DRAVResult SetUnitState(DRAVUnitState state) override;
    void SetUnitInitialized(bool initialized) override;
    bool IsUnitInitialized() override;
    virtual void SetOwner(std::shared_ptr<DRAVUnit> owner);
    DRAVResult SendFrame(std::shared_ptr<DRAVMediaBuffer> frame) override;
    DRAVResult SendFrame(int pin, std::shared_ptr<DRAVMediaBuffer> frame) override;
    DRAVResult AddReceiver(int pin, std::shared_ptr<DRAVMediaBufferDelegate> receiver) override;
    DRAVResult RemoveReceiver(int pin, std::shared_ptr<DRAVMediaBufferDelegate> receiver) override;
    // Rebuilds the unit and keeps its receivers, observers and state.
    virtual DRAVResult Reinit();
    // Reinit on a thread of its own, which keeps the unit alive until done.
    virtual DRAVResult ReinitAsync();
    // Hands `frame` out through output pin `pin`. On a device thread or the
    // mix's thread: takes only the pin list's lock, held by every side for a
    // copy of one pointer; no allocation.
    virtual DRAVResult ProcessFrame(int pin, std::shared_ptr<DRAVMediaBuffer> frame);
    // Frames arriving at an input pin; every filter and sink overrides this.
    virtual DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                                std::shared_ptr<DRAVMediaBuffer> frame);

    std::shared_ptr<DRAVUnitInputPin> GetInputPin(int index);
    std::shared_ptr<DRAVUnitOutputPin> GetOutputPin(int index);
    int GetNumInputPins() const { return numInputPins_; }
    int GetNumOutputPins() const { return numOutputPins_; }
    void AddChild(std::shared_ptr<DRAVUnit> child);
    // False when no child has that id.
    bool RemoveChild(const std::string& objectId);
    bool HasChild(const std::string& objectId);
    std::vector<std::shared_ptr<DRAVUnit>> GetChildren();
    bool IsChildOf(std::shared_ptr<const DRAVUnit> unit);
    bool IsChildOf(const std::string& objectId);
    std::shared_ptr<DRAVUnit> GetOwner() const;
    std::string GetOwnerID();
    std::string GetOwnerName();

    void SetDumpPinStatistics(bool dump);
    void SetResetPinStatistics(bool reset);

    // Waits up to `timeoutMs` for every ReinitAsync of the process to finish;
    // true when none is left.
    static bool WaitForPendingReinits(int timeoutMs);

protected:
    // Null while the unit is not held by a shared_ptr.
    std::shared_ptr<DRAVUnit> SharedUnit();
    std::vector<std::shared_ptr<DRAVUnitInputPin>> CopyInputPins();
    std::vector<std::shared_ptr<DRAVUnitOutputPin>> CopyOutputPins();

private:
    void ReleasePins();

    CDplThreadMutex childrenMutex_;
    std::list<std::shared_ptr<DRAVUnit>> children_;
    std::atomic<int32_t> state_{kDRAVUnitStateUninitialized};
    mutable CDplThreadMutex ownerMutex_;
    std::weak_ptr<DRAVUnit> owner_;
    CDplThreadMutex inputPinsMutex_;
    std::vector<std::shared_ptr<DRAVUnitInputPin>> inputPins_;
    CDplThreadMutex outputPinsMutex_;
    std::vector<std::shared_ptr<DRAVUnitOutputPin>> outputPins_;
    std::atomic<bool> verboseLogging_{false};
    std::atomic<bool> preserveBuffer_{false};
    const int32_t numInputPins_;
    const int32_t numOutputPins_;
};
