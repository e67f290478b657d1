#!/bin/bash
# Trains the eight beat networks side by side on one GPU, from the files of pack_beats.py.
#
#   bash training/train_beats_gpu.sh PACK_FOLDER CHECKPOINTS MINUTES [more train_beats.py arguments]
#
# Each network is its own process; CUDA's multi-process service lets their small kernels run at the
# same time. PYTHON names the interpreter (python3 by default). Checkpoints already in CHECKPOINTS are resumed. Logs go to CHECKPOINTS/net*.log.
set -u
pack=$1 checkpoints=$2 minutes=$3
shift 3
here=$(dirname "$0")
mkdir -p "$checkpoints"
if command -v nvidia-cuda-mps-control >/dev/null && ! pgrep -f nvidia-cuda-mps-control >/dev/null; then
  nvidia-cuda-mps-control -d
fi
for i in 0 1 2 3 4 5 6 7; do
  PYTHONUNBUFFERED=1 "${PYTHON:-python3}" "$here/train_beats.py" --net $i --packed "$pack"/beats_*.xz --checkpoints "$checkpoints" \
    --minutes "$minutes" --epochs 1000000 --batch 128 --lr 5e-4 --epoch-steps 40 --threads 1 "$@" \
    > "$checkpoints/net$i.log" 2>&1 &
done
wait
for i in 0 1 2 3 4 5 6 7; do grep epoch "$checkpoints/net$i.log" | sort -g -k8 | head -1; done
