#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tidemix::test
{

// Measurements of captured sound, for tests of the simulated audio world.
// Samples are one channel's, in order.
double ZeroCrossingFrequency(const std::vector<float>& samples, double sampleRate);
double Rms(const std::vector<float>& samples);
double Peak(const std::vector<float>& samples);
// Amplitude of the sine at `frequency` in the samples (one bin of a discrete
// Fourier transform, Goertzel's way). Exact for a window of whole periods;
// tells two tones of a mix apart where a zero-crossing count cannot.
double ToneAmplitude(const std::vector<float>& samples, double sampleRate, double frequency);
// The samples cut into whole pieces of `pieceFrames` (a short tail is left out).
std::vector<std::vector<float>> Pieces(const std::vector<float>& samples, size_t pieceFrames);
// A tone's amplitude in the pieces that carry it whole: the 90th percentile
// of the pieces' amplitudes, -1 without pieces. A piece a stalled thread
// spoiled (silence, a jump in the phase) reads low, never high, while a
// wrong gain or rate moves every piece.
double WholeToneAmplitude(const std::vector<std::vector<float>>& pieces, double sampleRate, double frequency);
// Channel `channel` of interleaved samples.
std::vector<float> Deinterleave(const std::vector<float>& interleaved, uint32_t channels, uint32_t channel);

}  // namespace tidemix::test
