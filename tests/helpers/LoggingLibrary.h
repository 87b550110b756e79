#pragma once

/// Gives the log manager a sink that writes to the standard output, and starts it.
void StartLogging();
