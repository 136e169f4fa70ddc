# power_logs_feedback.sh: writes the power state for the feedback collection.
target=/sdcard/Android/data/.harrowmoss/zklog/feedback/power
mkdir -p $target
dumpsys batterystats > $target/batterystats.txt
dumpsys alarm > $target/alarm.txt
