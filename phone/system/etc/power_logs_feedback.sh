# power_logs_feedback.sh: puts the power state where the feedback collection looks for it.
target=/sdcard/Android/data/.harrowmoss/zklog/feedback/power
mkdir -p $target
dumpsys batterystats > $target/batterystats.txt
dumpsys alarm > $target/alarm.txt
