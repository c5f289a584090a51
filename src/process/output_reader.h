#pragma once

#include <memory>

#include "process/line_delivery.h"
#include "process/output_progress.h"
#include "process/reports_in_flight.h"
#include "system/unique_fd.h"

namespace kestravine {

// Reads a command's merged output from `pipe` until every holder of its write end has closed it,
// turns it into lines (LineSplitter) and hands each read's lines to `delivery`, telling
// `progress` how far it has got. Blocks for the life of the output; runs on a thread of its own
// and holds only what it is given. Its hold on `inFlight` goes to the main queue behind its last
// lines.
void readOutput(UniqueFd pipe, std::shared_ptr<LineDelivery> delivery,
                std::shared_ptr<ReportsInFlight> inFlight,
                std::shared_ptr<OutputProgress> progress);

}  // namespace kestravine
