// Runs a command on all its inputs, several at once, with a progress bar. Prints the reports in order at the
// end.
#pragma once

#include "commands.h"
#include "jobs.h"
#include "outputs.h"
#include "progress.h"
#include "report.h"

// one(options, task, progress) returns the report on one task.
template <typename Options, typename One>
bool run_tasks(const Options &options, const std::vector<Task> &tasks, One one) {
    std::vector<Report> reports(tasks.size());
    bool well = false;
    {
        Progress progress(tasks.size());
        well = each(tasks.size(), options.jobs,
                    [&](std::size_t i) { reports[i] = one(options, tasks[i], progress); });
    }
    print(reports, options.report, options.names.back());
    return well;
}
