#pragma once

// Asks the platform for memory figures in megabytes: installed, available to new
// allocations, and resident in this process. Returns false, leaving the outputs
// untouched, where the platform gives no answer.
bool MemoryStats(int* total_mb, int* available_mb, int* process_mb);
