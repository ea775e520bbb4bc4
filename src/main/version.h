#pragma once

// The version string the scalar API answers and `acl --version` prints.
constexpr const char* ACL_VERSION_STRING = "ACL_V7.00.02.00";
