#pragma once

#include "Summary/Summary.h"

namespace OvixAgent::Testing {

/// Twelve frames in: seven out, one of them twice; one punted, three dropped, one handed on.
inline Summary busySummary() {
    Summary summary;
    summary.in = {12, 1200};
    summary.forwarded = {{"eth1", {3, 300}}, {"eth2", {0, 0}}, {"eth10", {5, 12345}}};
    summary.punted.add("OAM packet", 1);
    summary.dropped.add("No labels resolved", 2);
    summary.dropped.add("TTL expired", 1);
    summary.handedOn.add("not MPLS", 1);
    summary.replicas = 1;
    summary.exceptions = {2, 3032};
    summary.labels = {{100, {7, 700}}, {1048575, {1, 100}}};
    summary.pseudowires = {{"red", {2, 200}, {1, 60}}};
    summary.counters = {{"Drop", "Routing::Mpls", "No labels resolved", 2}};
    return summary;
}

} // namespace OvixAgent::Testing
