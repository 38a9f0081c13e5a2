// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>

// Setting words of one kind and the number that each stands for. Looked up with operator[]: an
// unknown word enters the table with 0 and stands for 0 from then on.
using WordTable = std::map<std::string, uint32_t>;

WordTable BaudRateWords();
WordTable DataBitsWords();
WordTable ParityWords();
WordTable StopBitsWords();
WordTable FlowControlWords();
