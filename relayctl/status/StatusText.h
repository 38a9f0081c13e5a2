// SPDX-License-Identifier: MIT
// A site's status as it is shown.
#pragma once

#include <string>

#include "status/SiteStatus.h"

// Several lines, each with its end; the first is what to do something about.
std::string TextOf(const SiteStatus& status, bool isColored);

// One object on one line, without its end.
std::string JsonOf(const SiteStatus& status);

// Metrics in the text format of Prometheus.
std::string MetricsOf(const SiteStatus& status);
