#!/bin/bash
# No include points up: each folder names the folders and the camera's headers that it may use. From the source tree.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

declare -A allowed=(
  [platform]="larod vdostream axparameter axevent axhttp axoverlay"
  [platform/scripted]="larod vdostream axparameter axoverlay"
  [video]="vdostream"
  [pose]="app/initial_params.h app/process_state.h video larod"
  [geometry]="app/process_state.h app/truncate.h video/VideoStreamSource.h"
  [events]="platform/clock axevent"
  [config]="app/.*_params.h app/process_state.h app/status.h app/truncate.h analysis/area_of_interest.h geometry overlay/overlay_manager.h video/VideoStreamSource.h axparameter axhttp"
  [analysis]="app/.*_params.h app/common_structs.h app/finding.h app/process_state.h app/truncate.h events geometry pose/skeleton.h platform/clock"
  [overlay]="app/.*_params.h app/common_structs.h app/finding.h app/process_state.h app/truncate.h analysis/FindingsHistory.h app/status.h geometry pose/skeleton.h platform/support axoverlay vdostream"
  [validation]="app/.*_params.h config/parameter_controller.h platform/support pose video larod"
  [app]="analysis config events geometry overlay pose validation video platform/clock platform/support larod axhttp"
  [simulator]=""
  [reference]="analysis app/process_state.h app/shutdown.h app/startup.h platform/clock pose/skeleton.h"
  [accuracy]="analysis app platform pose reference"
)

failed=0
for folder in "${!allowed[@]}"; do
  pattern="^($folder/"
  for place in ${allowed[$folder]}; do pattern+="|$place"; done
  pattern+=")"
  while IFS=: read -r file include; do
    if ! [[ "$include" =~ $pattern ]]; then
      echo "$file includes $include, which $folder may not use"
      failed=1
    fi
  done < <(grep -roE '#include ("[a-z_]+/[^"]*"|<(larod|vdostream|axparameter|axevent|axhttp|axoverlay)\.h>)' --include='*.cpp' --include='*.h' "$folder" |
    sed -E 's/#include [<"]//; s/[>"]$//' | grep -v '^platform/include/')
done
exit "$failed"
