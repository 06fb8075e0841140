#!/bin/bash
# No include points up or runs in a circle, and each library is used where it belongs. From the source tree.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

# The house from the bottom up: a room | the rooms and headers below that it may include | the libraries that it may.
# The headers of app/ that everybody shares lie lower than their folder; app/finding.h lies on pose.
rooms=(
  "platform/support||"
  "platform/clock||"
  "platform/trace||"
  "platform/scripted|platform/support platform/trace|gst larod vdostream axparameter axoverlay opencv2 cairo"
  "platform/workstation/system|platform/support platform/clock|"
  "platform/workstation/trace|platform/support platform/clock platform/trace platform/workstation/system|nlohmann"
  "platform/workstation/decoding|platform/support platform/clock platform/workstation/system|gst libyuv.h"
  "platform/workstation/sight|platform/support platform/clock platform/workstation/system platform/workstation/decoding|libyuv.h"
  "platform/workstation/camera|platform/support platform/clock platform/workstation/system platform/workstation/decoding platform/workstation/sight|nlohmann vdostream.h"
  "platform/workstation/inference|platform/support platform/workstation/system|nlohmann opencv2 oneapi larod.h"
  "platform/workstation/parameters|platform/support platform/clock platform/workstation/system platform/workstation/sight platform/workstation/camera|nlohmann axparameter.h"
  "platform/workstation/events|platform/support platform/clock platform/workstation/system platform/workstation/trace|nlohmann axevent.h"
  "platform/workstation/alarms|platform/support platform/clock platform/workstation/system platform/workstation/events|nlohmann"
  "platform/workstation/outside|platform/support platform/clock platform/workstation/system platform/workstation/alarms|nlohmann libsoup"
  "platform/workstation/views|platform/support platform/clock platform/workstation/system platform/workstation/trace platform/workstation/decoding platform/workstation/sight platform/workstation/camera platform/workstation/parameters|cairo.h libyuv.h turbojpeg.h axoverlay.h"
  "platform/workstation/camera_check|platform/support platform/workstation/system platform/workstation/decoding platform/workstation/camera platform/workstation/views|gst nlohmann"
  "platform/workstation/people|platform/support platform/clock platform/workstation/system|nlohmann crypt.h"
  "platform/workstation/certificates|platform/support platform/workstation/system|gnutls"
  "platform/workstation/web|platform/support platform/clock platform/workstation/people platform/workstation/certificates platform/workstation/system platform/workstation/sight platform/workstation/camera platform/workstation/parameters platform/workstation/events platform/workstation/alarms platform/workstation/outside platform/workstation/views platform/workstation/decoding|nlohmann libsoup"
  "platform/workstation/requests|platform/support platform/clock platform/workstation/system platform/workstation/trace platform/workstation/camera platform/workstation/parameters platform/workstation/alarms platform/workstation/outside platform/workstation/web|nlohmann libsoup axhttp.h"
  "platform/workstation/launcher|platform/support platform/workstation/people platform/workstation/certificates platform/workstation/system platform/workstation/trace platform/workstation/decoding platform/workstation/camera platform/workstation/inference platform/workstation/parameters platform/workstation/web|nlohmann gst"
  "video||libyuv.h vdostream.h"
  "pose|app/[a-z]*_params.h app/observer.h app/process_state.h platform/support video|larod.h"
  "geometry|app/process_state.h app/truncate.h video/VideoStreamSource.h|opencv2"
  "events|platform/clock|axevent.h"
  "analysis|app/[a-z]*_params.h app/common_structs.h app/finding.h app/observer.h app/process_state.h app/truncate.h events geometry pose/skeleton.h platform/clock|opencv2"
  "overlay|app/[a-z]*_params.h app/common_structs.h app/finding.h app/process_state.h app/status.h app/truncate.h analysis/FindingsHistory.h geometry pose/skeleton.h platform/support|cairo.h axoverlay.h vdostream.h"
  "config|app/[a-z]*_params.h app/process_state.h app/status.h app/truncate.h analysis/area_of_interest.h geometry overlay/overlay_manager.h video/VideoStreamSource.h platform/support|axparameter.h axhttp.h"
  "validation|app/[a-z]*_params.h app/observer.h config/parameter_controller.h platform/support pose video|larod.h"
  "trace|analysis app/[a-z]*_params.h app/finding.h app/observer.h app/process_state.h config/parameter_controller.h events geometry pose platform/clock platform/trace|nlohmann opencv2"
  "app|analysis config events geometry overlay pose trace validation video platform/clock platform/support|opencv2 larod.h axhttp.h"
  "simulator/figures||glm"
  "simulator/rooms|simulator/figures|glm"
  "simulator/drawing|simulator/figures simulator/rooms|EGL GL glm"
  "simulator/stories|simulator/figures simulator/rooms simulator/drawing|glm gst nlohmann"
  "simulator||EGL GL glm gst nlohmann"
  "reference|analysis app config platform/clock pose trace|nlohmann"
  "accuracy|analysis app events platform pose reference validation video|gst nlohmann opencv2 turbojpeg.h larod.h"
  "evaluate/judging|platform/support platform/workstation/system platform/workstation/trace platform/workstation/decoding platform/workstation/launcher|gst nlohmann"
  "evaluate/running|platform/support platform/workstation/camera platform/workstation/launcher evaluate/judging|gst"
  "evaluate/telling|platform/support evaluate/judging|nlohmann"
  "evaluate|platform/support platform/workstation/system platform/workstation/trace platform/workstation/decoding platform/workstation/camera platform/workstation/parameters platform/workstation/launcher|gst nlohmann"
)
guarded='libsoup|gnutls|crypt|gst|opencv2|oneapi|EGL|GL|glm|cairo|turbojpeg|libyuv|nlohmann|larod|vdostream|ax[a-z]+'

failed=0
complain() {
  echo "$1"
  failed=1
}

seen=" app/[a-z]*_params.h app/common_structs.h app/finding.h app/observer.h app/process_state.h app/status.h app/truncate.h "
set -f  # no name below is a pattern of files
for room in "${rooms[@]}"; do
  IFS='|' read -r folder ours libraries <<<"$room"
  pattern="^($folder/"
  for place in $ours; do
    [[ "$seen" == *" $place "* || "$seen" == *" ${place%%/*} "* || "$folder" == accuracy ]] ||
      complain "$folder may not use $place, which lies above it"
    pattern+="|$place"
  done
  for library in $libraries; do pattern+="|$library"; done
  pattern+=")"
  while IFS=: read -r file include; do
    [[ "$include" =~ $pattern ]] || complain "$file includes $include, which $folder may not use"
  done < <(grep -rE "^#include (\"[a-z_]+/|<($guarded)[/.])" --include='*.cpp' --include='*.h' "$folder" |
    sed -E 's/:#include [<"]([^>"]*).*/:\1/')
  seen+="$folder "
done
set +f
for folder in platform/workstation/*/ platform/*/; do
  [[ " $seen platform/include platform/workstation " == *" ${folder%/} "* ]] || complain "$folder has no place in the house"
done
exit "$failed"
