set terminal svg size 960,788 noenhanced font 'DejaVu Sans,13' background rgb 'white'
set border 1 lc rgb '#303030'
set key off
set multiplot
set label 10 'nec, a frame every 108 ms: ghosts, hasty, fast now, no fault as recommended' at screen 0.0208,0.9645 font 'DejaVu Sans Bold,17' textcolor rgb '#303030'
set label 11 '● a frame that presses the key, ❙ a key-down' at screen 0.0208,0.9264 textcolor rgb '#0072b2'
set label 12 '○ a frame that keeps it down' at screen 0.3854,0.9264 textcolor rgb '#8a8a8a'
set label 14 '■' at screen 0.7031,0.9264 textcolor rgb '#dde9f2'
set label 15 'held' at screen 0.7188,0.9264 textcolor rgb '#303030'
set label 16 '■' at screen 0.7708,0.9264 textcolor rgb '#9ecae1'
set label 17 'repeating' at screen 0.7865,0.9264 textcolor rgb '#303030'
set label 1 "Now: delay 250, period 33 ms" at screen 0.0208,0.8655 font 'DejaVu Sans Bold,14' textcolor rgb '#303030'
set label 2 "A tap gives 3-4 key-downs; a held button repeats after 250-284 ms, 25.0-30.3 times a second. Faults: ghosts, hasty, fast." at screen 0.0208,0.8376 textcolor rgb '#606060'
set ytics ('frames' 3, 'button' 2, 'key-downs' 1) scale 0 textcolor rgb '#303030'
set xtics 200 nomirror out offset 0,0.4 textcolor rgb '#303030'
set xlabel 'ms of a tap' offset 0,1 textcolor rgb '#606060'
set lmargin at screen 0.1354
set rmargin at screen 0.3438
set tmargin at screen 0.8173
set bmargin at screen 0.7081
$accepted << EOD
0.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
0.010 0.70 1.30
250.000 0.70 1.30
283.000 0.70 1.30
316.000 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 0.010,1.70 to 250.000,2.30 fc rgb '#dde9f2' fs solid noborder behind
set object rectangle from 250.000,1.70 to 342.000,2.30 fc rgb '#9ecae1' fs solid noborder behind
set xrange [-40:560]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
unset label
unset ytics
set xlabel 'ms of a held button'
set lmargin at screen 0.3750
set rmargin at screen 0.9688
set tmargin at screen 0.8173
set bmargin at screen 0.7081
$accepted << EOD
0.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
324.000 3
432.000 3
540.000 3
648.000 3
756.000 3
864.000 3
972.000 3
1080.000 3
1188.000 3
1296.000 3
1404.000 3
1512.000 3
1620.000 3
1728.000 3
1836.000 3
1944.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
0.000 0.70 1.30
250.000 0.70 1.30
283.000 0.70 1.30
316.000 0.70 1.30
349.000 0.70 1.30
382.000 0.70 1.30
415.000 0.70 1.30
448.000 0.70 1.30
481.000 0.70 1.30
514.000 0.70 1.30
547.000 0.70 1.30
580.000 0.70 1.30
613.000 0.70 1.30
646.000 0.70 1.30
679.000 0.70 1.30
712.000 0.70 1.30
745.000 0.70 1.30
778.000 0.70 1.30
811.000 0.70 1.30
844.000 0.70 1.30
877.000 0.70 1.30
910.000 0.70 1.30
943.000 0.70 1.30
976.000 0.70 1.30
1009.000 0.70 1.30
1042.000 0.70 1.30
1075.000 0.70 1.30
1108.000 0.70 1.30
1141.000 0.70 1.30
1174.000 0.70 1.30
1207.000 0.70 1.30
1240.000 0.70 1.30
1273.000 0.70 1.30
1306.000 0.70 1.30
1339.000 0.70 1.30
1372.000 0.70 1.30
1405.000 0.70 1.30
1438.000 0.70 1.30
1471.000 0.70 1.30
1504.000 0.70 1.30
1537.000 0.70 1.30
1570.000 0.70 1.30
1603.000 0.70 1.30
1636.000 0.70 1.30
1669.000 0.70 1.30
1702.000 0.70 1.30
1735.000 0.70 1.30
1768.000 0.70 1.30
1801.000 0.70 1.30
1834.000 0.70 1.30
1867.000 0.70 1.30
1900.000 0.70 1.30
1933.000 0.70 1.30
1966.000 0.70 1.30
1999.000 0.70 1.30
2032.000 0.70 1.30
2065.000 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 0.000,1.70 to 250.000,2.30 fc rgb '#dde9f2' fs solid noborder behind
set object rectangle from 250.000,1.70 to 2070.000,2.30 fc rgb '#9ecae1' fs solid noborder behind
set xrange [-40:2194]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
set label 1 "Recommended: delay 500, period 125 ms" at screen 0.0208,0.6168 font 'DejaVu Sans Bold,14' textcolor rgb '#303030'
set label 2 "A tap gives 1 key-down; a held button repeats after 500-532 ms, 7.6-8.0 times a second. No fault." at screen 0.0208,0.5888 textcolor rgb '#606060'
set ytics ('frames' 3, 'button' 2, 'key-downs' 1) scale 0 textcolor rgb '#303030'
set xtics 200 nomirror out offset 0,0.4 textcolor rgb '#303030'
set xlabel 'ms of a tap' offset 0,1 textcolor rgb '#606060'
set lmargin at screen 0.1354
set rmargin at screen 0.3438
set tmargin at screen 0.5685
set bmargin at screen 0.4594
$accepted << EOD
0.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
0.010 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 0.010,1.70 to 342.000,2.30 fc rgb '#dde9f2' fs solid noborder behind
set xrange [-40:560]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
unset label
unset ytics
set xlabel 'ms of a held button'
set lmargin at screen 0.3750
set rmargin at screen 0.9688
set tmargin at screen 0.5685
set bmargin at screen 0.4594
$accepted << EOD
0.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
324.000 3
432.000 3
540.000 3
648.000 3
756.000 3
864.000 3
972.000 3
1080.000 3
1188.000 3
1296.000 3
1404.000 3
1512.000 3
1620.000 3
1728.000 3
1836.000 3
1944.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
0.000 0.70 1.30
500.000 0.70 1.30
625.000 0.70 1.30
750.000 0.70 1.30
875.000 0.70 1.30
1000.000 0.70 1.30
1125.000 0.70 1.30
1250.000 0.70 1.30
1375.000 0.70 1.30
1500.000 0.70 1.30
1625.000 0.70 1.30
1750.000 0.70 1.30
1875.000 0.70 1.30
2000.000 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 0.000,1.70 to 500.000,2.30 fc rgb '#dde9f2' fs solid noborder behind
set object rectangle from 500.000,1.70 to 2070.000,2.30 fc rgb '#9ecae1' fs solid noborder behind
set xrange [-40:2194]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
unset label
set label 1 'All settings: repeats a second of a held button, and the worst fault' at screen 0.0208,0.3731 font 'DejaVu Sans Bold,14' textcolor rgb '#303030'
set label 2 'dashed: now; framed: recommended' at screen 0.9792,0.3731 right textcolor rgb '#606060'
set palette defined (0 '#ffffff', 4 '#e3eef7', 12 '#7fb6dd')
set cbrange [0:12]
unset colorbox
set border 0
set xlabel 'period (ms)'
set ytics ('250' 0, '300' 1, '400' 2, '500' 3) scale 0 textcolor rgb '#303030'
set ylabel 'delay (ms)' textcolor rgb '#606060'
unset object
$cells << EOD
0 0 25.000 "25.0" "ghosts" 10501120
1 1 12.500 "12.5" "ghosts" 10501120
2 1 9.615 "9.6" "ghosts" 10501120
3 1 7.576 "7.6" "ghosts" 10501120
4 1 6.410 "6.4" "ghosts" 10501120
1 2 12.500 "12.5" "fast" 10501120
2 2 9.615 "9.6" "good" 17773
3 2 7.576 "7.6" "good" 17773
4 2 6.410 "6.4" "good" 17773
1 3 12.500 "12.5" "fast" 10501120
2 3 9.615 "9.6" "good" 17773
3 3 7.576 "7.6" "good" 17773
4 3 6.410 "6.4" "good" 17773
EOD
set object rectangle from -0.46,-0.44 to 0.46,0.44 fs empty border rgb '#303030' lw 3 dt 2 front
set object rectangle from 2.54,2.56 to 3.46,3.44 fs empty border rgb '#303030' lw 3 dt 1 front
set lmargin at screen 0.0938
set rmargin at screen 0.9792
set tmargin at screen 0.3071
set bmargin at screen 0.0736
set title 'each key-down read as it comes' offset 0,-0.5 textcolor rgb '#303030'
set xtics ('33' 0, '75' 1, '100' 2, '125' 3, '150' 4) scale 0 offset 0,0.4
set xrange [-0.5:4.5]
set yrange [-0.5:3.5]
plot $cells using 1:2:(0.47):(0.45):3 with boxxyerror fs solid 1 noborder lc palette, \
     $cells using 1:2:4 with labels offset 0,0.45 textcolor rgb '#303030', \
     $cells using 1:2:5:6 with labels offset 0,-0.65 font ',10' textcolor rgb variable
unset label
unset ytics
unset ylabel
unset multiplot
