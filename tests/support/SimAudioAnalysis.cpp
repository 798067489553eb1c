#include "support/SimAudioAnalysis.h"

#include <algorithm>
#include <cmath>

namespace tidemix::test
{

double ZeroCrossingFrequency(const std::vector<float>& samples, double sampleRate)
{
    // Rising crossings between the first and the last one: whole periods only,
    // so the estimate doesn't depend on where the window starts.
    long first = -1;
    long last = -1;
    long crossings = 0;
    for (size_t i = 1; i < samples.size(); ++i)
    {
        if (samples[i - 1] < 0.0f && samples[i] >= 0.0f)
        {
            if (first < 0)
            {
                first = static_cast<long>(i);
            }
            else
            {
                ++crossings;
            }
            last = static_cast<long>(i);
        }
    }
    if (crossings == 0)
    {
        return 0.0;
    }
    return crossings * sampleRate / static_cast<double>(last - first);
}

double Rms(const std::vector<float>& samples)
{
    if (samples.empty())
    {
        return 0.0;
    }
    double sum = 0.0;
    for (float s : samples)
    {
        sum += static_cast<double>(s) * s;
    }
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

double Peak(const std::vector<float>& samples)
{
    double peak = 0.0;
    for (float s : samples)
    {
        peak = std::max(peak, static_cast<double>(std::fabs(s)));
    }
    return peak;
}

double ToneAmplitude(const std::vector<float>& samples, double sampleRate, double frequency)
{
    if (samples.empty() || sampleRate <= 0.0)
    {
        return 0.0;
    }
    const double omega = 2.0 * M_PI * frequency / sampleRate;
    const double coefficient = 2.0 * std::cos(omega);
    double previous = 0.0;
    double beforePrevious = 0.0;
    for (float s : samples)
    {
        const double current = s + coefficient * previous - beforePrevious;
        beforePrevious = previous;
        previous = current;
    }
    const double power =
        previous * previous + beforePrevious * beforePrevious - coefficient * previous * beforePrevious;
    return 2.0 * std::sqrt(std::max(power, 0.0)) / static_cast<double>(samples.size());
}

std::vector<float> Deinterleave(const std::vector<float>& interleaved, uint32_t channels, uint32_t channel)
{
    std::vector<float> result;
    result.reserve(interleaved.size() / channels);
    for (size_t i = channel; i < interleaved.size(); i += channels)
    {
        result.push_back(interleaved[i]);
    }
    return result;
}

std::vector<std::vector<float>> Pieces(const std::vector<float>& samples, size_t pieceFrames)
{
    std::vector<std::vector<float>> pieces;
    for (size_t start = 0; pieceFrames > 0 && start + pieceFrames <= samples.size(); start += pieceFrames)
    {
        pieces.emplace_back(samples.begin() + static_cast<std::ptrdiff_t>(start),
                            samples.begin() + static_cast<std::ptrdiff_t>(start + pieceFrames));
    }
    return pieces;
}

double WholeToneAmplitude(const std::vector<std::vector<float>>& pieces, double sampleRate, double frequency)
{
    std::vector<double> amplitudes;
    for (const std::vector<float>& piece : pieces)
    {
        amplitudes.push_back(ToneAmplitude(piece, sampleRate, frequency));
    }
    if (amplitudes.empty())
    {
        return -1.0;
    }
    const size_t index = amplitudes.size() * 9 / 10;
    std::nth_element(amplitudes.begin(), amplitudes.begin() + static_cast<std::ptrdiff_t>(index),
                     amplitudes.end());
    return amplitudes[index];
}

}  // namespace tidemix::test
