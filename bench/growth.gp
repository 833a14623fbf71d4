# docs/growth.svg, from what script/bench has measured: gnuplot -e "data='FILE'; image='FILE'" bench/growth.gp
# A block of the data is a command: its name, then lines of how many records or lines it got, the seconds of the processor
# and the MB of its largest resident set.
set terminal svg size 960,440 font 'DejaVu Sans,13' background rgb 'white'
set output image
set datafile separator tab

array color[5] = ['#1b6ca8', '#dd9820', '#3f9b5f', '#9a9a9a', '#7a3e9d']
# replay and report of three sources, tune, record, monitor of three
array ofCommand[11] = [1, 1, 1, 5, 5, 5, 2, 3, 4, 4, 4]
array ofSource[11] = [7, 5, 9, 7, 5, 9, 9, 9, 7, 5, 9]  # points: a mouse, a keyboard, a remote
ink = '#303030'

set border 3 lc rgb ink
set tics nomirror textcolor rgb ink
set logscale xy
set xrange [700:1.4e7]
set format x '10^{%L}'
set grid ytics lc rgb '#e4e4e4'
set xlabel 'records or lines' textcolor rgb ink
set key at screen 0.72, screen 0.75 left top Left reverse samplen 2 textcolor rgb ink
set multiplot layout 1,2

set lmargin at screen 0.06
set rmargin at screen 0.34
set title 'Seconds of the processor' textcolor rgb ink
unset key
set format y '%g'
plot for [i = 1:11] data index i - 1 using 1:2 with linespoints lc rgb color[ofCommand[i]] pt ofSource[i] ps 0.7 notitle

set lmargin at screen 0.41
set rmargin at screen 0.70
set title 'Largest resident set, MB'
set key
plot for [i = 1:11] data index i - 1 using 1:3 with linespoints lc rgb color[ofCommand[i]] pt ofSource[i] ps 0.7 \
  title columnheader(1)
