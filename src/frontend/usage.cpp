// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/usage.h"

#include "base/property_list.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "host/files/property_file.h"
#include "product/paths.h"

namespace halyard {

// Kept: the texts stand as administrators know them, "$MINVER" unexpanded and "-source" without a
// volume included, with their trailing blanks.
// clang-format off
constexpr const char* kRestoreCaution =
    "                               Since data could be overwritten \n"
    "                               this should be used with care.  Also, any special \n"
    "                               service handling should be considered!!!  \n"
    "                               Use with care!!!\n"
    "                               Note: the DESTINATION_VOLUME for restore must be version $MINVER or later. \n";

void Usage() {
  const FunctionLog scope(__func__);
  printText(
    "Usage:\n"
    "Halyard supports the following options:\n"
    " -cmd backup -source SOURCE_VOLUME : Will start the backup process for the supplied \n"
    "                               SOURCE_VOLUME.  This should always be / for Server.\n"
    "                               e.g.; /usr/sbin/Halyard -cmd backup -source \n"
    "                               Note: the SOURCE_VOLUME for backup must be at version $MINVER or later. \n"
    " -cmd browse -path PATH -service SERVICE: Will obtain browse listing of service SERVICE. \n"
    "                               SERVICE can be specified as [all] to get all service browsable items.\n"
    "                               e.g.; /usr/sbin/Halyard -cmd browse -path /Volumes/xxx/Archives.snapdb/xxx.img -service depotHost\n"
    " -cmd list : Displays a list of the backup snapshots in the backup repository for this system.\n"
    " -cmd listVerbose : Displays a list of the backup snapshots in the backup repository for this system, uses options -Alh.\n"
    " -cmd purgeSnapShot -path SNAPSHOT_PATH : This will remove the snapshot at path SNAPSHOT_PATH\n"
    "                               NOTE: Use with care!!!\n"
    " -cmd prefs :                  Validate or create settings for Helmsman backup.\n"
    " -cmd postBackupComplete :     Remove the %s backup folder from the root drive.\n"
    " -cmd restore -path PATH -target DESTINATION_VOLUME : Will start the restore process with \n"
    "                               the supplied PATH for the indicated \n"
    "                               DESTINATION_VOLUME.  Note: the DESTINATION_VOLUME is always /\n"
    "                               e.g.; /usr/sbin/Halyard -cmd restore -path /Volumes/xxx/Archives.snapdb/HOSTNAME/SNAPSHOT -target /\n"
    "%s"
    " -cmd restoreService -path PATH -target DESTINATION_VOLUME -service SERVICE -opt ALL: Will start the restore process with \n"
    "                               the supplied PATH for the indicated \n"
    "                               DESTINATION_VOLUME and the indicated service SERVICE.  Note: the DESTINATION_VOLUME is always /\n"
    "                               e.g.; /usr/sbin/Halyard -cmd restoreService -path /Volumes/xxx/Archives.snapdb/HOSTNAME/SNAPSHOT -target / -service hostProfile\n"
    "%s"
    " -cmd services :               Lists the names of services. \n"
    " -cmd size :                   Calculates the size requirements for doing a backup.\n"
    "                               The line returned represents the number of Kilobytes required for storage.\n"
    "                               e.g. total := 1872\n"
    " -cmd version :                Returns version information for this binary.\n"
    "                               e.g. Halyard (Halyard), Vantor Inc., Version 10.7\n"
    " -cmd verify -path PATH -service SERVICE : Will verify the live data against the snapshot \n"
    "                               for the service SERVICE.\n"
    "                               e.g.; /usr/sbin/Halyard -cmd verify -path /Volumes/xxx/Archives.snapdb/HOSTNAME/SNAPSHOT -service depotHost\n",
    paths::kMetadataFolder, kRestoreCaution, kRestoreCaution);
}
// clang-format on

int Version() {
  const FunctionLog scope(__func__);
  const auto descriptor =
      host::readDictionary(joinPath(paths::kConfigurationFolder, paths::kVersionDescriptorName));
  if (descriptor && !descriptor->empty()) {
    printText("%s\n", descriptor->text("Version").value_or("").c_str());
  }
  return 0;
}

}  // namespace halyard
