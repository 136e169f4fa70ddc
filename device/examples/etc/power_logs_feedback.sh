# power_logs_feedback.sh: writes the power state to the directory that the feedback collection reads.
target=/sdcard/Android/data/.harrowmoss/zklog/feedback/power
mkdir -p "$target" || exit 1
dumpsys batterystats > "$target/batterystats.txt"
dumpsys alarm > "$target/alarm.txt"
