// The virtual device: the in-process model of the switch that the platform layer serves from.
#pragma once

#include <string>
#include <string_view>

namespace vdev {

// Loads the model from a JSON device file, or the built-in default when path is empty. On failure
// the model is unchanged and error names the file, the place and the problem.
bool load(const std::string& path, std::string* error);
// The same for a device file's text already read, error naming it as name.
bool loadText(std::string_view text, const std::string& name, std::string* error);
// Starts serving the control socket (acldev.socket in the run directory). 0 on success.
int serve();
// Back to the built-in default, with no faults and empty logs; the control server is stopped.
void resetForTest();

}  // namespace vdev
