#pragma once
// What the command-line programs share: their exit codes and version text.

// 0: done; 1: the job failed at run time (a file, the data); 2: bad usage.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// "wavestore <version>", the text of --version.
const char* WavestoreVersionText();
