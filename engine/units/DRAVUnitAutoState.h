#pragma once

#include <memory>

#include "engine/units/DRAVUnit.h"

// Remembers a unit's state for a scope and, when asked, puts it back at the
// end of the scope.
class DRAVUnitAutoState
{
public:
    DRAVUnitAutoState(std::shared_ptr<DRAVUnit> unit, bool restoreOnDestruction)
        : unit_(std::move(unit)),
          restore_(restoreOnDestruction),
          saved_(unit_ ? unit_->GetUnitState() : kDRAVUnitStateUninitialized)
    {
    }
    ~DRAVUnitAutoState()
    {
        if (restore_)
        {
            RestoreState();
        }
    }
    DRAVUnitAutoState(const DRAVUnitAutoState&) = delete;
    DRAVUnitAutoState& operator=(const DRAVUnitAutoState&) = delete;

    // ErrInvalidState without a unit.
    DRAVResult RestoreState()
    {
        if (!unit_)
        {
            return DRAVResult(kDRAVResultErrInvalidState);
        }
        return unit_->SetUnitState(saved_);
    }
    DRAVUnitState GetSavedState() const { return saved_; }
    void SetRestoreOnDestruction(bool restore) { restore_ = restore; }

private:
    std::shared_ptr<DRAVUnit> unit_;
    bool restore_;
    DRAVUnitState saved_;
};
