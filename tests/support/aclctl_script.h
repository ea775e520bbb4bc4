// The end-to-end fixture with aclctl runs written as one text: commands split at ';' or a
// newline, words at spaces (no quoting: for arguments without spaces).
#pragma once

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/acl_e2e.h"

class AclScriptTest : public AclE2eTest {
 protected:
  // Runs every command of text in order; each must end with status.
  void script(const std::string& text, int status = 0) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      std::istringstream commands(line);
      for (std::string command; std::getline(commands, command, ';');) {
        std::istringstream in(command);
        const std::vector<std::string> words{std::istream_iterator<std::string>(in),
                                             std::istream_iterator<std::string>()};
        if (!words.empty()) run(words, status);
      }
    }
  }
  // aclctl args ends with status and prints each of texts (on either stream).
  void says(const std::vector<std::string>& args, int status,
            std::initializer_list<std::string> texts) {
    std::string out;
    EXPECT_EQ(said(args, &out), status) << out;
    for (const std::string& t : texts)
      EXPECT_NE(out.find(t), std::string::npos) << t << " in " << out;
  }
};
