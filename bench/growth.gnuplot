# Draws `points` as `plot`, each kind as a block of its own. No background, and colours that show on
# a light page and on a dark one.

set terminal svg size 860,480 dynamic font "sans-serif,13"
set output plot

grey = "#737d87"
set border 3 linecolor rgb grey
set title "Cost of one message, as a multiple of the smallest case's; thin: processor time" textcolor rgb grey
set key below horizontal samplen 2 textcolor rgb grey
set logscale xy
set xrange [0.8:80000]
set xlabel "how many, or characters" textcolor rgb grey
set xtics nomirror textcolor rgb grey
set ytics nomirror textcolor rgb grey
set format y "%g×"
set grid xtics ytics linecolor rgb grey linewidth 0.6 dashtype 3
set arrow from graph 0, first 1.3 to graph 1, first 1.3 nohead linecolor rgb grey linewidth 1.2

array colour[5] = ["#2f81f7", "#2da44e", "#e0662b", "#a371f7", "#c2930a"]
array name[5] = ["clients of a service", "subscribers, per callback", "adapters of a session, per callback", \
                 "sessions of a process", "characters of a text, per byte"]
plot for [i = 1:5] points index i - 1 using 2:3 with linespoints pointtype 7 pointsize 0.5 linewidth 2 \
         linecolor rgb colour[i] title name[i], \
     for [i = 1:5] points index i - 1 using 2:4 with lines linewidth 0.8 linecolor rgb colour[i] notitle
