// Expansion of block-compressed 16-bit stereo waves. Each block starts with a
// mode word and always yields 2048 stereo frames (8192 bytes); a channel is
// either stored raw or delta-delta coded with 8-bit codes.
#pragma once

#include <cstdint>

#include "source/ByteReader.h"

const int kGigFramesPerBlock = 2048;
const int kGigBlockOutputBytes = kGigFramesPerBlock * 4;

// Bytes taken by the block that starts with this mode word.
int gigBlockSize(uint16_t mode);

// Decodes the block held in `block` (gigBlockSize bytes, mode word first)
// into 2048 interleaved left/right frames at `out`. False, with nothing
// written, when the reader is shorter than the block.
bool gigDecodeBlock(const tolvin::ByteReader& block, short* out);

// Expands the blocks of `in` into `out` and returns the bytes written. A
// block is decoded only when at least one byte follows it, so the block that
// ends exactly at the end of the input is dropped. `out` must have room for
// 8192 bytes per decoded block.
int gigxpand(int inputBytes, const char* in, short* out);
