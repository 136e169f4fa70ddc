# power_logs_feedback.sh: puts the power state where the feedback collection takes it from.
target=/sdcard/Android/data/.harrowmoss/zklog/feedback/power
mkdir -p "$target" || exit 1
dumpsys batterystats > "$target/batterystats.txt"
dumpsys alarm > "$target/alarm.txt"
