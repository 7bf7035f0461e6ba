# Draws $points as the file `plot`. No background, and colours that show on light pages and dark ones.

set terminal svg size 860,520 dynamic font "sans-serif,13"
set output plot

grey = "#737d87"
set border 1 linecolor rgb grey
set title "Time, as a multiple of what the required work costs by itself" textcolor rgb grey
set key below horizontal samplen 1 width -1 textcolor rgb grey
set logscale x
set xrange [0.2:500]
set xtics nomirror scale 0.5 textcolor rgb grey
set format x "%g×"
set yrange [*:*] reverse
set offsets 0, 0, 0.7, 0.7
set ytics scale 0 textcolor rgb grey
set grid xtics ytics linecolor rgb grey linewidth 0.6 dashtype 3
set arrow from 1, graph 0 to 1, graph 1 nohead linecolor rgb grey linewidth 1.2

plot $points using 3:1:ytic(2) with points pointtype 7 pointsize 1.1 linecolor rgb "#2f81f7" title "this library", \
     $points using 6:1 with points pointtype 5 pointsize 0.9 linecolor rgb "#2da44e" title "protobuf", \
     $points using 4:1 with points pointtype 9 pointsize 1.1 linecolor rgb "#e0662b" title "sd-bus", \
     $points using 5:1 with points pointtype 11 pointsize 1.1 linecolor rgb "#a371f7" title "sd-bus over a daemon", \
     $points using 7:1 with points pointtype 13 pointsize 1.2 linecolor rgb "#c2930a" title "std::put\\\_time"
