// What a program that must not be stopped halfway asks of its standard streams.
#pragma once

namespace quarry {

// Opens /dev/null for each of the three that the caller closed, so that no file of this run gets their
// descriptors and with them words that were meant for a terminal. From here on a reader that goes away, and a
// limit on the size of files, show as failed writes instead of ending the program beside a temporary file.
void secure_standard_streams();

// Whether the caller closed standard input: what is read there is not what the caller meant.
[[nodiscard]] bool standard_input_was_closed();

// Whether the caller closed standard output: what is written there is lost.
[[nodiscard]] bool standard_output_was_closed();

}  // namespace quarry
