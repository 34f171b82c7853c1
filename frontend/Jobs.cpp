// The jobs of a run: the master settings (defaults, settings file, command
// line, producer text), then the file-list job or the command-line job.
#include "frontend/JobDriver.h"
#include "frontend/JobRunner.h"
#include "settings/FileList.h"
#include "settings/SettingsFile.h"
#include "settings/TrimoraPreferences.h"

ASErrorCode RunJobs(const CommandLineOptions& options, Log& log) {
    CTrimoraPreferences master;
    master.SetLog(&log);
    // A failed read is reported by the reader; the job goes on with what
    // was loaded.
    LoadSettingsFile(master, options.settingsFile, log);

    CommandLineSecurity sec;
    sec.encrypt = options.encrypt;
    sec.keyLength = options.keyLength;
    sec.ownerPassword = options.ownerPass;
    sec.userPassword = options.userPass;
    sec.noPrinting = options.noPrinting;
    sec.noEditing = options.noEditing;
    sec.noCopy = options.noCopy;
    sec.noNotes = options.noNotes;
    sec.allowFill = options.allowFill;
    sec.allowAccess = options.allowAccess;
    sec.allowAssem = options.allowAssem;
    sec.allowHQPrint = options.allowHQPrint;
    ApplyCommandLineOverrides(master, sec);
    master.SetProducerText(ProducerText());

    jobs::JobOptions jobOptions;
    jobOptions.output = options.output;
    jobOptions.openPassword = options.openPass;
    jobOptions.report = options.report;

    if (options.fileList[0] != '\0') {
        FileList list;
        if (!ReadFileList(options.fileList, list, log)) return 0;
        return jobs::RunListJob(list, jobOptions, master, log);
    }
    return jobs::RunCommandLineJob(options.inputs, jobOptions, master, log);
}
