# Draws what genlock_rig writes: time, fill less target, source, its estimate, clock (ppm), locked.
# Called by scripts/genlock.sh, which sets the two folders: columns, pictures.
set term pngcairo size 840,540 font "sans,11" linewidth 1.2
set grid lc rgb "#dddddd"
set key top right
fill = "#1f6fb4"
clock = "#d9822b"
source = "#444444"

# Fill above, source and clock below, over one axis of time in the unit of `scale` seconds.
begin(name) = sprintf("set output '%s/%s.png'", pictures, name)

set macros
level = "using ($1/scale):2 with lines lc rgb fill title 'fill less target, frames'"
clocks = "using ($1/scale):5 with lines lc rgb clock title 'clock, ppm'"
sources = "using ($1/scale):3 with lines lc rgb source title 'source, ppm'"

eval begin("cold-start")
scale = 1
set multiplot layout 2,1 title "Cold start: 48 kHz, source 90 ppm fast, transfers of 256 frames"
set yrange [-25:35]
plot columns."/cold" @level, 16 lc rgb "#bbbbbb" dt 2 title "band of 16", -16 lc rgb "#bbbbbb" dt 2 notitle
set yrange [-10:150]
set xlabel "seconds"
plot columns."/cold" @clocks, columns."/cold" using 1:4 with lines lc rgb fill title "source as estimated, ppm", columns."/cold" @sources
unset multiplot
unset xlabel

eval begin("drift")
scale = 3600
set multiplot layout 2,1 title "24 hours: 48 kHz, source drifts by 0.1 ppm a minute"
set xrange [0:24]
set xtics 3
set yrange [-25:35]
plot columns."/drift" @level
set yrange [-40:40]
set xlabel "hours"
plot columns."/drift" @clocks, columns."/drift" @sources
unset multiplot
unset xlabel
set xtics auto

eval begin("restart")
scale = 1
set multiplot layout 2,1 title "The service restarts at 60.5 s: 48 kHz, source 90 ppm fast, listing every second"
set xrange [50:90]
set yrange [-40:40]
plot columns."/restart" @level, 16 lc rgb "#bbbbbb" dt 2 title "band of 16", -16 lc rgb "#bbbbbb" dt 2 notitle
set yrange [-10:150]
set xlabel "seconds"
plot columns."/restart" @clocks, columns."/restart" @sources
unset multiplot
unset xlabel

eval begin("laws")
set multiplot layout 2,1 title "Transfers of 1024 frames, 48 kHz, source 50 ppm fast: clock less source, ppm"
set xrange [0:300]
set yrange [-420:420]
set ytics 200
plot columns."/old" using 1:($5-$3) with lines lc rgb clock lw 0.5 title "proportional to the fill, ten reports a second"
set xlabel "seconds"
plot columns."/new" using 1:($5-$3) with lines lc rgb fill title "observer and band"
unset multiplot
unset xlabel
set ytics auto

eval begin("trade")
set title "What a narrow band costs: 48 kHz, mean over sources from step to step"
set logscale xy
set xrange [0.8:80]
set yrange [1:1000]
set xtics (1, 2, 4, 8, 16, 32, 64)
set xlabel "band, frames either way"
plot columns."/trade" using 1:2 with linespoints pt 7 lc rgb clock title "commands in an hour", \
    columns."/trade" using 1:3 with linespoints pt 7 lc rgb fill title "farthest off the target, frames"
