/** The end of a VM: normal, by System.exit, by the agent. */
final class Ending {
    public static void main(String[] args) throws Exception {
        Thread daemon = new Thread(() -> {
            while (true) {
                TestAgent.runGC();
            }
        });
        daemon.setDaemon(true);
        daemon.start();
        System.out.println("ALL PASSED");
        System.out.flush();
        if (args[0].equals("profiler")) {
            TestAgent.profilerExit(7);
        } else if (args[0].equals("exit")) {
            System.exit(5);
        }
    }
}
