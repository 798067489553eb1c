#pragma once

// Maps a hardware scale from lower to upper logarithmically to 0.0..1.0 and
// back, optionally reaching some steps beyond its nominal ends. Immutable
// after construction.
class DRMXLogarithmicNormalizationService
{
public:
    // lower must be above 0 and upper above lower, else the scale is 1..10;
    // steps is at least 2, stepsBelow and stepsAbove at least 0.
    DRMXLogarithmicNormalizationService(double lower, double upper, int steps, int stepsBelow,
                                        int stepsAbove);

    double GetNormalized(double value) const;
    double GetDeNormalized(double value) const;

    double LowerLog() const { return lowerLog_; }
    double UpperLog() const { return upperLog_; }

private:
    // Sets lowerLog_ and upperLog_ from values the constructor has checked.
    void ComputeNormalizationBounds(double lower, double upper, int steps, int stepsBelow, int stepsAbove);

    double lowerLog_ = 0.0;
    double upperLog_ = 1.0;
};
